#pragma once

#include <QtCore/QPointer>
#include <QtCore/QUrl>
#include <QtWidgets/QGraphicsView>

#include <memory>

namespace tvl::updater {
class VlcInstance;
class VlcPlayer;
class VlcVideoGraphicsItem;
} // namespace tvl::updater

/**
 * Plays a project's trailer, muted and in a loop, into a frame item of its scene. The loop opens
 * the media again each time it stops, because a stop detaches the frame item from the player.
 * Playback pauses while the view is hidden (the window hidden or minimised to the tray) and
 * goes on when it is shown again.
 */
class TrailerView : public QGraphicsView
{
    Q_OBJECT
    /// How often the trailer started again after it ended.
    Q_PROPERTY(int loops READ loops)
    /// Whether frames are coming now (false while paused, stopped or between two loops).
    Q_PROPERTY(bool playing READ isPlaying)

public:
    explicit TrailerView(QWidget* parent = nullptr);
    ~TrailerView() override;

    /// Whether libvlc could be loaded; without it no trailer plays and the banner is shown.
    bool available();
    /// Plays `url` from the start; an empty URL stops. False when it cannot be played.
    bool play(const QUrl& url);
    void stop();
    QUrl url() const { return m_url; }
    int loops() const { return m_loops; }
    bool isPlaying() const;

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    bool start();
    void onStopped();
    void fit();

    std::unique_ptr<tvl::updater::VlcInstance> m_instance;
    tvl::updater::VlcPlayer* m_player = nullptr;
    tvl::updater::VlcVideoGraphicsItem* m_item = nullptr;
    QUrl m_url;
    int m_loops = 0;
    bool m_pausedByHide = false;
    /// Asked to play (or to loop) while hidden.
    bool m_startOnShow = false;
    /// Playing, looping or waiting to be shown: play() of the same clip leaves it as it is.
    bool m_active = false;
    bool m_triedLoading = false;
};
