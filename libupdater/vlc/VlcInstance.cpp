#include "VlcInstance.h"

#include <basix/Logger.h>
#include <basix/SystemEnvironment.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QLibrary>
#include <QtCore/QLibraryInfo>

#include <cstdint>
#include <cstring>
#include <iterator>

/*
 * The record that libvlc hands its log callback. libvlc.h declares it without members; this is
 * its layout in libvlc's core (unchanged since libvlc 2.1). Only the object type is read.
 */
struct vlc_log_t
{
    std::uintptr_t i_object_id;
    const char* psz_object_type;
    const char* psz_module;
    const char* psz_header;
    const char* file;
    int line;
    const char* func;
    unsigned long tid;
};

namespace tvl::updater {

namespace {

/// Arguments of libvlc_new: no interface, no configuration file, no title over the video.
const char* const VlcArguments[] = {
    "-I",
    "dummy",
    "--quiet",
    "--ignore-config",
    "--no-video-title-show",
};

/**
 * The directory of the system's own libraries, where a libvlc without its development files
 * lies only under versioned names: the multiarch directory when the build names it
 * (UPDATER_MULTIARCH_LIBDIR), otherwise the one Qt's libraries were installed in, which is the
 * same directory on a multiarch system and /usr/lib64 or the like elsewhere.
 */
QString systemLibraryDirectory()
{
#ifdef UPDATER_MULTIARCH_LIBDIR
    const QString directory = QStringLiteral(UPDATER_MULTIARCH_LIBDIR);
    if (!directory.isEmpty())
        return directory;
#endif
    return QLibraryInfo::path(QLibraryInfo::LibrariesPath);
}

/// Tries every "libvlc.so*" file of `directory` in the directory's own order; true at the first
/// that loads.
bool loadFromDirectory(QLibrary& library, const QString& directory)
{
    const QDir dir(directory, QStringLiteral("libvlc.so*"), QDir::NoSort, QDir::NoFilter);
    const QFileInfoList entries = dir.entryInfoList();
    for (const QFileInfo& entry : entries) {
        library.setFileName(entry.absoluteFilePath());
        if (library.load())
            return true;
    }
    return false;
}

/// Resolves entry points in the order of the calls, until the first one that is missing.
class Resolver
{
public:
    explicit Resolver(QLibrary& library)
        : m_library(library)
    {
    }

    template<typename Function>
    Resolver& operator()(const char* name, Function& pointer)
    {
        if (!m_missing) {
            pointer = reinterpret_cast<Function>(m_library.resolve(name));
            if (!pointer)
                m_missing = name;
        }
        return *this;
    }

    /// The first entry point that could not be resolved, or null.
    const char* missing() const { return m_missing; }

private:
    QLibrary& m_library;
    const char* m_missing = nullptr;
};

} // namespace

#define VLC_ENTRY(name) (#name, name)

VlcInstance::VlcInstance(QObject* parent)
    : QObject(parent)
{
    // The dynamic loader reads LD_LIBRARY_PATH only at start-up, so the added directory is not
    // searched by dlopen() itself: findLibrary() looks there and answers with the absolute path
    // of a bundled libvlc (preloading its bundled dependencies), or with "vlc" unchanged, which
    // QLibrary then looks up as libvlc.so through the system's normal search.
    const QString applicationVlcDirectory = QCoreApplication::applicationDirPath() + QStringLiteral("/vlc");
    tvl::SystemEnvironment::addLibrarySearchPath(applicationVlcDirectory);

    TVL_LOG(tvl::Logger::Debug) << "Loading vlc library";

    m_library = new QLibrary(tvl::SystemEnvironment::findLibrary(QStringLiteral("vlc")), this);
    bool loaded = m_library->load();
    if (!loaded)
        loaded = loadFromDirectory(*m_library, QStringLiteral("/usr/lib"));
    if (!loaded) {
        m_library->setFileName(applicationVlcDirectory + QStringLiteral("/libvlc.dll"));
        loaded = m_library->load();
    }
    // Without libvlc's development files there is no unversioned libvlc.so anywhere.
    if (!loaded) {
        m_library->setFileName(QStringLiteral("libvlc.so.5"));
        loaded = m_library->load();
    }
    if (!loaded)
        loaded = loadFromDirectory(*m_library, systemLibraryDirectory());
    if (!loaded) {
        TVL_LOG(tvl::Logger::Error) << "LIbrary not loaded" << m_library->errorString();
        return;
    }

    Resolver resolve(*m_library);
    resolve VLC_ENTRY(libvlc_new)
            VLC_ENTRY(libvlc_errmsg)
            VLC_ENTRY(libvlc_clearerr)
            VLC_ENTRY(libvlc_get_version)
            VLC_ENTRY(libvlc_release)
            VLC_ENTRY(libvlc_media_player_new)
            VLC_ENTRY(libvlc_video_set_key_input)
            VLC_ENTRY(libvlc_video_set_mouse_input)
            VLC_ENTRY(libvlc_media_player_release)
            VLC_ENTRY(libvlc_media_new_path)
            VLC_ENTRY(libvlc_media_new_location)
            VLC_ENTRY(libvlc_media_player_set_media)
            VLC_ENTRY(libvlc_media_player_get_media)
            VLC_ENTRY(libvlc_media_player_get_state)
            VLC_ENTRY(libvlc_audio_toggle_mute)
            VLC_ENTRY(libvlc_audio_get_mute)
            // Required like the rest although nothing calls it (nor set_pause below): a libvlc
            // that lacks either is refused.
            VLC_ENTRY(libvlc_audio_set_mute)
            VLC_ENTRY(libvlc_audio_get_volume)
            VLC_ENTRY(libvlc_audio_set_volume)
            VLC_ENTRY(libvlc_media_player_play)
            VLC_ENTRY(libvlc_media_player_set_pause)
            VLC_ENTRY(libvlc_media_player_can_pause)
            VLC_ENTRY(libvlc_media_player_pause)
            VLC_ENTRY(libvlc_media_player_stop)
            VLC_ENTRY(libvlc_media_release)
            VLC_ENTRY(libvlc_media_player_get_length)
            VLC_ENTRY(libvlc_media_player_get_time)
            VLC_ENTRY(libvlc_media_player_set_time)
            VLC_ENTRY(libvlc_video_set_callbacks)
            VLC_ENTRY(libvlc_video_set_format);
    if (resolve.missing()) {
        TVL_LOG(tvl::Logger::Error) << "Loading" << resolve.missing() << "failed";
        return;
    }
    // Optional: without it libvlc's messages just stay out of the log.
    libvlc_log_set = reinterpret_cast<decltype(libvlc_log_set)>(m_library->resolve("libvlc_log_set"));
    if (!libvlc_log_set)
        TVL_LOG(tvl::Logger::Error) << "Loading" << "libvlc_log_set" << "failed";

    m_vlc = libvlc_new(int(std::size(VlcArguments)), VlcArguments);
    if (const char* message = libvlc_errmsg()) {
        TVL_LOG(tvl::Logger::Error) << "[VLC]" << message;
        libvlc_clearerr();
    }
    if (!m_vlc) {
        TVL_LOG(tvl::Logger::Error) << "[VLC] VLC not loaded";
        return;
    }

    TVL_LOG(tvl::Logger::Notice) << "[VLC]LibVlc loaded Version :" << libvlc_get_version();

    // The callback belongs to this libvlc instance; every player made from it shares it.
    if (libvlc_log_set)
        libvlc_log_set(m_vlc, log_vlc, nullptr);
}

#undef VLC_ENTRY

VlcInstance::~VlcInstance()
{
    if (m_vlc)
        libvlc_release(m_vlc);
}

bool VlcInstance::isLoaded() const
{
    return m_vlc != nullptr;
}

libvlc_instance_t* VlcInstance::vlc()
{
    return m_vlc;
}

void log_vlc(void* data, int level, const libvlc_log_t* context, const char* format, va_list arguments)
{
    Q_UNUSED(data)
    static const char unknownOption[] = "option %s does not exist";
    if (!format || std::strcmp(format, unknownOption) == 0)
        return;

    tvl::Logger::Level loggerLevel = tvl::Logger::Trace;
    switch (level) {
    case LIBVLC_NOTICE:
        loggerLevel = tvl::Logger::Notice;
        break;
    case LIBVLC_WARNING:
        loggerLevel = tvl::Logger::Warning;
        break;
    case LIBVLC_ERROR:
        loggerLevel = tvl::Logger::Error;
        break;
    default:
        break;
    }

    // The caller's va_list stays untouched: libvlc may hand the same one to other handlers.
    va_list copy;
    va_copy(copy, arguments);
    const QString message = QString::vasprintf(format, copy);
    va_end(copy);

    const QString origin = QStringLiteral("[VLC LIBRARY : %1]")
                               .arg(QString::fromUtf8(context && context->psz_object_type
                                                          ? context->psz_object_type
                                                          : ""));
    tvl::Logger::instance()->log(message, origin, QString(), 0, loggerLevel);
}

} // namespace tvl::updater
