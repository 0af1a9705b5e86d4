#pragma once

#include <libupdater/LibupdaterExport.h>
#include <libupdater/vlc/AbstractVideoPlayer.h>

#include <vlc/vlc.h>

class QTimer;

namespace tvl::updater {

class VlcInstance;

/**
 * A video player over one libvlc media player.
 *
 * It must be built on a loaded VlcInstance (see VlcInstance::isLoaded(); the player does not
 * check) that outlives it. libvlc's own events are not used: the player polls libvlc's state
 * every 300 ms for its whole life and turns what it sees into signals. stopped() comes once
 * each time the state becomes Stopped or Ended; durationChanged() whenever the length seen
 * while playing differs from the one announced last; paused() is never emitted. libvlc's
 * errors are cleared after every operation and reported only as false from open().
 */
class LIBUPDATER_EXPORT VlcPlayer : public AbstractVideoPlayer
{
    Q_OBJECT

public:
    /// libvlc's player states, value for value.
    enum State {
        Idle = 0,
        Opening = 1,
        Buffering = 2,
        Playing = 3,
        Paused = 4,
        Stopped = 5,
        Ended = 6,
        Error = 7
    };
    Q_ENUM(State)

    explicit VlcPlayer(VlcInstance* instance, QObject* parent = nullptr);
    ~VlcPlayer() override;

    /// The libvlc media player.
    libvlc_media_player_t* vlc();
    /// The instance given at construction.
    VlcInstance* instance();

    /// True when libvlc reported an error since the last check; the error is cleared.
    bool error() const;
    /// Idle while no medium is set, otherwise libvlc's state of the player.
    State state() const;

    /// Stops what plays and sets the medium: a local file by its path, anything else by its URL.
    bool open(const QUrl& url) override;
    int duration() const override;
    bool isPlaying() const override;
    bool isPaused() const override;
    int position() const override;
    void setPosition(int milliseconds) override;
    /// Also true while no audio output is open: libvlc then reports the mute state as -1.
    bool isMute() const override;
    /// -1 without a libvlc player.
    int volume() const override;
    /// A VlcVideoGraphicsItem; destroy it only after stop().
    QGraphicsItem* createGraphicsItem(const QSize& size) override;

public slots:
    void setVolume(int volume) override;
    void toogleMute() override;
    void play() override;
    /// Toggles between paused and playing, where the medium can pause.
    void pause() override;
    /// Stops, detaches the frame item and releases the medium. Harmless when nothing plays.
    void stop() override;

private slots:
    void checkStatus();

private:
    libvlc_media_t* m_media = nullptr;
    libvlc_media_player_t* m_player = nullptr;
    VlcInstance* m_instance = nullptr;
    QTimer* m_pollTimer = nullptr;
    State m_lastState = Idle;
    quint64 m_lastDuration = 0;

    Q_DISABLE_COPY(VlcPlayer)
};

} // namespace tvl::updater
