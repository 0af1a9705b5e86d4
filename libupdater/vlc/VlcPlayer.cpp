#include "VlcPlayer.h"

#include "VlcInstance.h"
#include "VlcVideoGraphicsItem.h"

#include <basix/Logger.h>

#include <QtCore/QDir>
#include <QtCore/QMetaEnum>
#include <QtCore/QTimer>

namespace tvl::updater {

static_assert(int(VlcPlayer::Idle) == libvlc_NothingSpecial && int(VlcPlayer::Opening) == libvlc_Opening
                  && int(VlcPlayer::Buffering) == libvlc_Buffering && int(VlcPlayer::Playing) == libvlc_Playing
                  && int(VlcPlayer::Paused) == libvlc_Paused && int(VlcPlayer::Stopped) == libvlc_Stopped
                  && int(VlcPlayer::Ended) == libvlc_Ended && int(VlcPlayer::Error) == libvlc_Error,
              "VlcPlayer::State reads libvlc_state_t by value");

namespace {
constexpr int PollInterval = 300; // milliseconds
}

VlcPlayer::VlcPlayer(VlcInstance* instance, QObject* parent)
    : AbstractVideoPlayer(parent)
    , m_instance(instance)
{
    m_player = m_instance->libvlc_media_player_new(m_instance->vlc());
    // The frames go to an item in a scene, which handles input itself.
    m_instance->libvlc_video_set_key_input(m_player, 0);
    m_instance->libvlc_video_set_mouse_input(m_player, 0);

    m_pollTimer = new QTimer(this);
    connect(m_pollTimer, &QTimer::timeout, this, &VlcPlayer::checkStatus);
    m_pollTimer->start(PollInterval);
}

VlcPlayer::~VlcPlayer()
{
    stop();
    m_instance->libvlc_media_player_release(m_player);
}

libvlc_media_player_t* VlcPlayer::vlc()
{
    return m_player;
}

VlcInstance* VlcPlayer::instance()
{
    return m_instance;
}

bool VlcPlayer::error() const
{
    if (!m_instance->libvlc_errmsg())
        return false;
    m_instance->libvlc_clearerr();
    return true;
}

VlcPlayer::State VlcPlayer::state() const
{
    libvlc_media_t* media = m_instance->libvlc_media_player_get_media(m_player);
    if (!media)
        return Idle;
    // libvlc hands out a new reference, which the poll would otherwise leak three times a
    // second: the media player's media would never be freed.
    m_instance->libvlc_media_release(media);
    return State(m_instance->libvlc_media_player_get_state(m_player));
}

bool VlcPlayer::open(const QUrl& url)
{
    if (m_media)
        stop();

    const QString localFile = url.toLocalFile();
    if (localFile.isNull()) {
        m_media = m_instance->libvlc_media_new_location(m_instance->vlc(), url.toEncoded().constData());
    } else {
        m_media = m_instance->libvlc_media_new_path(m_instance->vlc(),
                                                    QDir::toNativeSeparators(localFile).toLocal8Bit().constData());
    }
    if (!m_media || error())
        return false;

    m_instance->libvlc_media_player_set_media(m_player, m_media);
    return !error();
}

int VlcPlayer::duration() const
{
    const libvlc_time_t length = m_instance->libvlc_media_player_get_length(m_player);
    error();
    return int(length);
}

bool VlcPlayer::isPlaying() const
{
    return state() == Playing;
}

bool VlcPlayer::isPaused() const
{
    return state() == Paused;
}

int VlcPlayer::position() const
{
    return int(m_instance->libvlc_media_player_get_time(m_player));
}

void VlcPlayer::setPosition(int milliseconds)
{
    m_instance->libvlc_media_player_set_time(m_player, milliseconds);
    error();
}

bool VlcPlayer::isMute() const
{
    if (!m_player)
        return false;
    return m_instance->libvlc_audio_get_mute(m_player) != 0;
}

int VlcPlayer::volume() const
{
    if (!m_player)
        return -1;
    return m_instance->libvlc_audio_get_volume(m_player);
}

QGraphicsItem* VlcPlayer::createGraphicsItem(const QSize& size)
{
    return new VlcVideoGraphicsItem(this, size);
}

void VlcPlayer::setVolume(int volume)
{
    if (m_player)
        m_instance->libvlc_audio_set_volume(m_player, volume);
    error();
}

void VlcPlayer::toogleMute()
{
    if (m_player)
        m_instance->libvlc_audio_toggle_mute(m_player);
}

void VlcPlayer::play()
{
    if (!m_player || !m_media)
        return;
    m_instance->libvlc_media_player_play(m_player);
    error();
}

void VlcPlayer::pause()
{
    if (m_instance->libvlc_media_player_can_pause(m_player))
        m_instance->libvlc_media_player_pause(m_player);
    error();
}

void VlcPlayer::stop()
{
    if (!m_player)
        return;
    // A running video output keeps the callbacks it was opened with, so detaching only concerns
    // the next one. No frame reaches an item after this returns because libvlc's stop closes
    // the running output before it returns.
    m_instance->libvlc_video_set_callbacks(m_player, nullptr, nullptr, nullptr, nullptr);
    m_instance->libvlc_media_player_stop(m_player);
    m_instance->libvlc_media_release(m_media);
    m_media = nullptr;
}

void VlcPlayer::checkStatus()
{
    const State current = state();
    if (current != m_lastState) {
        m_lastState = current;
        if (current == Stopped || current == Ended) {
            TVL_LOG(tvl::Logger::Trace) << "Stopped";
            emit stopped();
        }
        TVL_LOG(tvl::Logger::Trace) << "State Changed" << QMetaEnum::fromType<State>().valueToKey(current);
    }
    if (current == Playing) {
        const quint64 length = quint64(qint64(duration()));
        if (length != m_lastDuration) {
            m_lastDuration = length;
            emit durationChanged(length);
        }
    }
}

} // namespace tvl::updater
