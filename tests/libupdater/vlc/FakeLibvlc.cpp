// A stand-in for libvlc exporting the entry points the loader resolves, reporting the calls that matter on standard
// output. A build renames away those it must lack (libvlc_x=omitted_x); FAKE_NEW_FAILS: libvlc_new fails.
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <string>

#define FAKE_EXPORT extern "C" __attribute__((visibility("default")))

static std::string version = "fake";
static const char* errorMessage = nullptr;

FAKE_EXPORT void* libvlc_new(int argc, const char* const* argv)
{
    static int instance = 0;
    version += ' ' + std::to_string(argc);
    for (int i = 0; i < argc; ++i)
        version += std::string(" ") + argv[i];
#ifdef FAKE_NEW_FAILS
    errorMessage = "fake: no plugins found";
#endif
    return errorMessage ? nullptr : &instance;
}
FAKE_EXPORT const char* libvlc_errmsg() { return errorMessage; }
FAKE_EXPORT void libvlc_clearerr() { std::printf("CALL libvlc_clearerr\n"), errorMessage = nullptr; }
FAKE_EXPORT const char* libvlc_get_version() { return version.c_str(); }
FAKE_EXPORT void libvlc_release(void*) { std::printf("CALL libvlc_release\n"); }

#ifndef FAKE_NO_LOG_SET // libvlc_log_set, which installs the log callback, and the log context it is given
struct LogContext { std::uintptr_t id; const char *type, *module, *header, *file; int line; const char* func; unsigned long tid; };
using LogCallback = void (*)(void* data, int level, const LogContext* context, const char* format, va_list);

static void emitLog(LogCallback callback, void* data, const char* format, ...)
{
    static const LogContext context{7, "fake object", "fake", nullptr, __FILE__, __LINE__, "emitLog", 1};
    va_list arguments;
    va_start(arguments, format);
    callback(data, 3, &context, format, arguments);
    va_end(arguments);
}

FAKE_EXPORT void libvlc_log_set(void*, LogCallback callback, void* data)
{
    emitLog(callback, data, "log callback installed with %s data, %d", data ? "some" : "null", 42);
}
#endif

#define FAKE_ENTRY(name) FAKE_EXPORT void libvlc_##name() {} // never called: no real signature needed
FAKE_ENTRY(media_player_new) FAKE_ENTRY(video_set_key_input) FAKE_ENTRY(video_set_mouse_input) FAKE_ENTRY(media_player_release)
FAKE_ENTRY(media_new_path) FAKE_ENTRY(media_new_location) FAKE_ENTRY(media_player_set_media) FAKE_ENTRY(media_player_get_media)
FAKE_ENTRY(media_player_get_state) FAKE_ENTRY(audio_toggle_mute) FAKE_ENTRY(audio_get_mute) FAKE_ENTRY(audio_set_mute)
FAKE_ENTRY(audio_get_volume) FAKE_ENTRY(audio_set_volume) FAKE_ENTRY(media_player_play) FAKE_ENTRY(media_player_set_pause)
FAKE_ENTRY(media_player_can_pause) FAKE_ENTRY(media_player_pause) FAKE_ENTRY(media_player_stop) FAKE_ENTRY(media_release)
FAKE_ENTRY(media_player_get_length) FAKE_ENTRY(media_player_get_time) FAKE_ENTRY(media_player_set_time)
FAKE_ENTRY(video_set_callbacks) FAKE_ENTRY(video_set_format)
