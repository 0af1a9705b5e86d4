#pragma once

#include <libupdater/LibupdaterExport.h>

#include <QtCore/QObject>

#include <cstdarg>

// Only for the declarations: libvlc is loaded at run time and never linked.
#include <vlc/vlc.h>

class QLibrary;

namespace tvl::updater {

/**
 * The one libvlc of the process, loaded at run time.
 *
 * The constructor finds and loads libvlc, resolves every entry point the video classes use and
 * creates the libvlc instance; each step that fails is logged and leaves the object unloaded
 * for good. The entry points are public: VlcPlayer and VlcVideoGraphicsItem call libvlc through
 * them only. None of them may be called unless isLoaded() is true, since those after a failed
 * resolution are never set.
 *
 * Create it before any player and keep it until the last player made from it is gone.
 */
class LIBUPDATER_EXPORT VlcInstance : public QObject
{
    Q_OBJECT

public:
    explicit VlcInstance(QObject* parent = nullptr);
    ~VlcInstance() override;

    /// True exactly when the libvlc instance was created.
    bool isLoaded() const;
    /// The libvlc instance, or null.
    libvlc_instance_t* vlc();

    decltype(&::libvlc_new) libvlc_new = nullptr;
    decltype(&::libvlc_errmsg) libvlc_errmsg = nullptr;
    decltype(&::libvlc_clearerr) libvlc_clearerr = nullptr;
    decltype(&::libvlc_get_version) libvlc_get_version = nullptr;
    decltype(&::libvlc_release) libvlc_release = nullptr;
    decltype(&::libvlc_media_player_new) libvlc_media_player_new = nullptr;
    decltype(&::libvlc_video_set_key_input) libvlc_video_set_key_input = nullptr;
    decltype(&::libvlc_video_set_mouse_input) libvlc_video_set_mouse_input = nullptr;
    decltype(&::libvlc_media_player_release) libvlc_media_player_release = nullptr;
    decltype(&::libvlc_media_new_path) libvlc_media_new_path = nullptr;
    decltype(&::libvlc_media_new_location) libvlc_media_new_location = nullptr;
    decltype(&::libvlc_media_player_set_media) libvlc_media_player_set_media = nullptr;
    decltype(&::libvlc_media_player_get_media) libvlc_media_player_get_media = nullptr;
    decltype(&::libvlc_media_player_get_state) libvlc_media_player_get_state = nullptr;
    decltype(&::libvlc_audio_toggle_mute) libvlc_audio_toggle_mute = nullptr;
    decltype(&::libvlc_audio_get_mute) libvlc_audio_get_mute = nullptr;
    decltype(&::libvlc_audio_set_mute) libvlc_audio_set_mute = nullptr;
    decltype(&::libvlc_audio_get_volume) libvlc_audio_get_volume = nullptr;
    decltype(&::libvlc_audio_set_volume) libvlc_audio_set_volume = nullptr;
    decltype(&::libvlc_media_player_play) libvlc_media_player_play = nullptr;
    decltype(&::libvlc_media_player_set_pause) libvlc_media_player_set_pause = nullptr;
    decltype(&::libvlc_media_player_can_pause) libvlc_media_player_can_pause = nullptr;
    decltype(&::libvlc_media_player_pause) libvlc_media_player_pause = nullptr;
    decltype(&::libvlc_media_player_stop) libvlc_media_player_stop = nullptr;
    decltype(&::libvlc_media_release) libvlc_media_release = nullptr;
    decltype(&::libvlc_media_player_get_length) libvlc_media_player_get_length = nullptr;
    decltype(&::libvlc_media_player_get_time) libvlc_media_player_get_time = nullptr;
    decltype(&::libvlc_media_player_set_time) libvlc_media_player_set_time = nullptr;
    decltype(&::libvlc_video_set_callbacks) libvlc_video_set_callbacks = nullptr;
    decltype(&::libvlc_video_set_format) libvlc_video_set_format = nullptr;
    decltype(&::libvlc_log_set) libvlc_log_set = nullptr;

private:
    QLibrary* m_library = nullptr;
    libvlc_instance_t* m_vlc = nullptr;

    Q_DISABLE_COPY(VlcInstance)
};

/**
 * libvlc's log callback: writes one libvlc message to the application log, with the origin
 * "[VLC LIBRARY : <object type>]" as its source, no function and line 0. Notices, warnings
 * and errors keep their rank (levels 3, 4, 5); everything else is logged at level 0. Messages
 * about unknown options are dropped. Called on libvlc's threads.
 */
LIBUPDATER_EXPORT void log_vlc(void* data, int level, const libvlc_log_t* context,
                               const char* format, va_list arguments);

} // namespace tvl::updater
