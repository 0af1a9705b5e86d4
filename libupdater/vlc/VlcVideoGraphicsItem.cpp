#include "VlcVideoGraphicsItem.h"

#include "VlcInstance.h"
#include "VlcPlayer.h"

#include <QtCore/QCoreApplication>
#include <QtGui/QImage>
#include <QtGui/QPainter>

#include <cstring>

namespace tvl::updater {

namespace {
// Posted by the video thread after each frame; handled on the item's (the GUI) thread.
constexpr QEvent::Type FrameReadyEvent = QEvent::Type(1000);
static_assert(FrameReadyEvent == QEvent::User);
}

void* detail::GraphicsItemObject::qt_metacast(const char* className)
{
    if (className && std::strcmp(className, "com.trolltech.Qt.QGraphicsItem") == 0)
        return graphicsItem();
    return QObject::qt_metacast(className);
}

VlcVideoGraphicsItem::VlcVideoGraphicsItem(VlcPlayer* player, const QSize& size)
    : GraphicsItemObject(nullptr)
    , QGraphicsItem(nullptr)
    , m_size(size)
    , m_player(player)
{
    onChange();
}

VlcVideoGraphicsItem::~VlcVideoGraphicsItem()
{
    delete m_image;
}

void VlcVideoGraphicsItem::onChange()
{
    const QMutexLocker locker(&m_mutex);
    delete m_image;
    m_image = new QImage(m_size.width(), m_size.height(), QImage::Format_ARGB32_Premultiplied);
    m_image->fill(Qt::black);

    VlcInstance* instance = m_player->instance();
    instance->libvlc_video_set_callbacks(m_player->vlc(), lock, unlock, display, this);
    // "RV32" is 32 bits a pixel, which this image format matches; it has no padding at the end
    // of a row, so the pitch is exactly four bytes a pixel.
    instance->libvlc_video_set_format(m_player->vlc(), "RV32", unsigned(m_size.width()),
                                      unsigned(m_size.height()), unsigned(m_size.width()) * 4);
}

bool VlcVideoGraphicsItem::event(QEvent* e)
{
    if (e->type() == FrameReadyEvent) {
        update();
        return true;
    }
    return QObject::event(e);
}

QRectF VlcVideoGraphicsItem::boundingRect() const
{
    return QRectF(0, 0, m_size.width(), m_size.height());
}

void VlcVideoGraphicsItem::paint(QPainter* painter, const QStyleOptionGraphicsItem* option, QWidget* widget)
{
    Q_UNUSED(option)
    Q_UNUSED(widget)
    const QMutexLocker locker(&m_mutex);
    if (m_image)
        painter->drawImage(QPointF(0, 0), *m_image);
}

void* lock(void* opaque, void** planes)
{
    auto* item = static_cast<VlcVideoGraphicsItem*>(opaque);
    // Held until unlock(), while libvlc writes the frame.
    item->m_mutex.lock();
    planes[0] = item->m_image->bits();
    return nullptr;
}

void unlock(void* opaque, void* picture, void* const* planes)
{
    Q_UNUSED(picture)
    Q_UNUSED(planes)
    auto* item = static_cast<VlcVideoGraphicsItem*>(opaque);
    item->m_mutex.unlock();
    QCoreApplication::postEvent(item, new QEvent(FrameReadyEvent));
}

void display(void* opaque, void* picture)
{
    Q_UNUSED(opaque)
    Q_UNUSED(picture)
}

} // namespace tvl::updater
