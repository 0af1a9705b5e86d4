#include "TrailerView.h"

#include <basix/Logger.h>

#include <libupdater/vlc/VlcInstance.h>
#include <libupdater/vlc/VlcPlayer.h>
#include <libupdater/vlc/VlcVideoGraphicsItem.h>

#include <QtCore/QTimer>
#include <QtWidgets/QGraphicsScene>

using namespace tvl::updater;

namespace {
/// Frames are decoded at this size and the item is scaled to the view: a 16:9 trailer.
const QSize FrameSize(640, 360);
} // namespace

TrailerView::TrailerView(QWidget* parent)
    : QGraphicsView(parent)
{
    setObjectName(QStringLiteral("trailerView"));
    setScene(new QGraphicsScene(this));
    setBackgroundBrush(Qt::black);
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setFocusPolicy(Qt::NoFocus);
    setInteractive(false);
}

TrailerView::~TrailerView()
{
    // The item must not outlive the player's callbacks, nor the player its instance.
    stop();
    delete m_player;
    m_player = nullptr;
}

bool TrailerView::available()
{
    if (!m_triedLoading) {
        m_triedLoading = true;
        m_instance = std::make_unique<VlcInstance>();
        if (!m_instance->isLoaded()) {
            TVL_LOG(tvl::Logger::Notice) << "libvlc cannot be loaded: trailers show as banners";
            m_instance.reset();
        }
    }
    return m_instance != nullptr;
}

bool TrailerView::play(const QUrl& url)
{
    // Asked again for the clip it plays (or loops, or waits to show): it goes on.
    if (!url.isEmpty() && url == m_url && m_active)
        return true;
    stop();
    m_url = url;
    m_loops = 0;
    if (url.isEmpty() || !available())
        return false;
    if (!m_player) {
        m_player = new VlcPlayer(m_instance.get(), this);
        connect(m_player, &AbstractVideoPlayer::stopped, this, &TrailerView::onStopped);
    }
    // A hidden view starts when it is shown: nothing plays unseen.
    if (!isVisible()) {
        m_startOnShow = true;
        m_active = true;
        return true;
    }
    m_active = start();
    return m_active;
}

bool TrailerView::start()
{
    if (!m_player->open(m_url)) {
        TVL_LOG(tvl::Logger::Warning) << "The trailer" << m_url.toString() << "cannot be opened";
        return false;
    }
    // open() stopped the player, which detached the old item: a new one receives the frames.
    delete m_item;
    m_item = static_cast<VlcVideoGraphicsItem*>(m_player->createGraphicsItem(FrameSize));
    scene()->addItem(m_item);
    scene()->setSceneRect(m_item->boundingRect());
    fit();
    m_player->play();
    m_player->setVolume(0);
    return true;
}

void TrailerView::stop()
{
    const QUrl none;
    if (m_player)
        m_player->stop();
    delete m_item;
    m_item = nullptr;
    m_pausedByHide = false;
    m_startOnShow = false;
    m_active = false;
    m_url = none;
}

bool TrailerView::isPlaying() const
{
    return m_player && m_player->isPlaying();
}

void TrailerView::onStopped()
{
    // The end of the clip (or a stop of ours, after which there is no URL): loop.
    if (m_url.isEmpty())
        return;
    ++m_loops;
    QTimer::singleShot(0, this, [this] {
        if (m_url.isEmpty() || !m_player)
            return;
        if (isVisible())
            start();
        else
            m_startOnShow = true;
    });
}

void TrailerView::showEvent(QShowEvent* event)
{
    QGraphicsView::showEvent(event);
    if (m_pausedByHide && m_player && m_player->isPaused())
        m_player->pause(); // toggles back to playing
    m_pausedByHide = false;
    if (m_startOnShow && m_player && !m_url.isEmpty())
        start();
    m_startOnShow = false;
    fit();
}

void TrailerView::hideEvent(QHideEvent* event)
{
    QGraphicsView::hideEvent(event);
    // Pausing toggles: only a trailer that plays is paused, else a paused one would start.
    if (m_player && m_player->isPlaying()) {
        m_player->pause();
        m_pausedByHide = true;
    }
}

void TrailerView::resizeEvent(QResizeEvent* event)
{
    QGraphicsView::resizeEvent(event);
    fit();
}

void TrailerView::fit()
{
    if (m_item)
        fitInView(m_item, Qt::KeepAspectRatio);
}
