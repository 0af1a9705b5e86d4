#pragma once

#include <libupdater/LibupdaterExport.h>

#include <QtCore/QMutex>
#include <QtCore/QObject>
#include <QtCore/QSize>
#include <QtWidgets/QGraphicsItem>

class QImage;

namespace tvl::updater {

class VlcPlayer;

/**
 * libvlc's video callbacks for a VlcVideoGraphicsItem given as `opaque`, called on libvlc's
 * video thread. lock() takes the item's mutex and hands libvlc the frame buffer; unlock()
 * releases it and posts the item its repaint event; display() has nothing left to do.
 */
LIBUPDATER_EXPORT void* lock(void* opaque, void** planes);
LIBUPDATER_EXPORT void unlock(void* opaque, void* picture, void* const* planes);
LIBUPDATER_EXPORT void display(void* opaque, void* picture);

namespace detail {

/**
 * The QObject side of VlcVideoGraphicsItem. It answers the meta-object cast to the identifier
 * that Qt gave QGraphicsItem before Qt 5 ("com.trolltech.Qt.QGraphicsItem"), which callers still
 * use and moc no longer generates, with the item's QGraphicsItem part.
 */
class LIBUPDATER_EXPORT GraphicsItemObject : public QObject
{
public:
    using QObject::QObject;
    void* qt_metacast(const char* className) override;

protected:
    virtual QGraphicsItem* graphicsItem() = 0;
};

} // namespace detail

/**
 * Shows the frames of a VlcPlayer in a graphics scene.
 *
 * libvlc decodes into an image that the item owns, at the item's size (libvlc scales), and the
 * item repaints after every frame. The image is black until the first frame arrives. The
 * image is shared with libvlc's video thread and guarded by a mutex; the video thread asks for
 * the repaint by posting the item an event of type QEvent::User.
 *
 * Created by VlcPlayer::createGraphicsItem(). It does not detach itself from libvlc: destroy
 * it only after VlcPlayer::stop() (which open() and the player's destructor call), since a
 * paused medium goes on drawing into it when it plays again.
 */
class LIBUPDATER_EXPORT VlcVideoGraphicsItem : public detail::GraphicsItemObject, public QGraphicsItem
{
    Q_OBJECT
    Q_INTERFACES(QGraphicsItem)

public:
    VlcVideoGraphicsItem(VlcPlayer* player, const QSize& size);
    ~VlcVideoGraphicsItem() override;

    /// Makes a new black frame buffer and attaches it to the player's libvlc player.
    void onChange();

    bool event(QEvent* e) override;
    QRectF boundingRect() const override;
    void paint(QPainter* painter, const QStyleOptionGraphicsItem* option, QWidget* widget) override;

protected:
    QGraphicsItem* graphicsItem() override { return this; }

private:
    friend void* lock(void* opaque, void** planes);
    friend void unlock(void* opaque, void* picture, void* const* planes);

    QSize m_size;
    QMutex m_mutex;
    QImage* m_image = nullptr;
    VlcPlayer* m_player = nullptr;

    Q_DISABLE_COPY(VlcVideoGraphicsItem)
};

} // namespace tvl::updater
