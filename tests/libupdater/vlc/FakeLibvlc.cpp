// A stand-in for libvlc that exports the entry points the loader resolves, for the loader's
// failure paths. Only the functions the loader calls do anything; the others are never called
// and need no real signature. A build that must lack an entry point renames it with a compile
// definition (libvlc_x=omitted_libvlc_x), so the name is not exported.
//
//   FAKE_NEW_FAILS    libvlc_new fails with an error message
//   FAKE_NO_LOG_SET   there is no libvlc_log_set at all

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <string>

#define FAKE_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

// The leading fields of libvlc's log context, as libvlc hands it to a log callback.
struct LogContext
{
    std::uintptr_t objectId;
    const char* objectType;
    const char* module;
    const char* header;
    const char* file;
    int line;
    const char* function;
    unsigned long threadId;
};

using LogCallback = void (*)(void* data, int level, const LogContext* context, const char* format,
                             va_list arguments);

std::string version = "fake";
const char* errorMessage = nullptr;

// Tells the test process which calls were made.
void report(const char* call)
{
    std::printf("CALL %s\n", call);
    std::fflush(stdout);
}

#ifndef FAKE_NO_LOG_SET
void emitLog(LogCallback callback, void* data, int level, const char* format, ...)
{
    static const LogContext context{7, "fake object", "fake", nullptr, __FILE__, __LINE__, "emitLog", 1};
    va_list arguments;
    va_start(arguments, format);
    callback(data, level, &context, format, arguments);
    va_end(arguments);
}
#endif

} // namespace

FAKE_EXPORT void* libvlc_new(int argc, const char* const* argv)
{
#ifdef FAKE_NEW_FAILS
    (void)argc;
    (void)argv;
    errorMessage = "fake: no plugins found";
    return nullptr;
#else
    static int instance = 0;
    version += ' ' + std::to_string(argc);
    for (int i = 0; i < argc; ++i)
        version += std::string(" ") + argv[i];
    return &instance;
#endif
}

FAKE_EXPORT const char* libvlc_errmsg()
{
    return errorMessage;
}

FAKE_EXPORT void libvlc_clearerr()
{
    report("libvlc_clearerr");
    errorMessage = nullptr;
}

FAKE_EXPORT const char* libvlc_get_version()
{
    return version.c_str();
}

FAKE_EXPORT void libvlc_release(void*)
{
    report("libvlc_release");
}

#ifndef FAKE_NO_LOG_SET
FAKE_EXPORT void libvlc_log_set(void* instance, LogCallback callback, void* data)
{
    (void)instance;
    emitLog(callback, data, 3, "log callback installed with %s data, %d", data ? "some" : "null", 42);
}
#endif

#define FAKE_ENTRY(name) FAKE_EXPORT void name() {}

FAKE_ENTRY(libvlc_media_player_new)
FAKE_ENTRY(libvlc_video_set_key_input)
FAKE_ENTRY(libvlc_video_set_mouse_input)
FAKE_ENTRY(libvlc_media_player_release)
FAKE_ENTRY(libvlc_media_new_path)
FAKE_ENTRY(libvlc_media_new_location)
FAKE_ENTRY(libvlc_media_player_set_media)
FAKE_ENTRY(libvlc_media_player_get_media)
FAKE_ENTRY(libvlc_media_player_get_state)
FAKE_ENTRY(libvlc_audio_toggle_mute)
FAKE_ENTRY(libvlc_audio_get_mute)
FAKE_ENTRY(libvlc_audio_set_mute)
FAKE_ENTRY(libvlc_audio_get_volume)
FAKE_ENTRY(libvlc_audio_set_volume)
FAKE_ENTRY(libvlc_media_player_play)
FAKE_ENTRY(libvlc_media_player_set_pause)
FAKE_ENTRY(libvlc_media_player_can_pause)
FAKE_ENTRY(libvlc_media_player_pause)
FAKE_ENTRY(libvlc_media_player_stop)
FAKE_ENTRY(libvlc_media_release)
FAKE_ENTRY(libvlc_media_player_get_length)
FAKE_ENTRY(libvlc_media_player_get_time)
FAKE_ENTRY(libvlc_media_player_set_time)
FAKE_ENTRY(libvlc_video_set_callbacks)
FAKE_ENTRY(libvlc_video_set_format)
