#pragma once

#include <libupdater/LibupdaterExport.h>

#include <QtCore/QString>
#include <QtCore/QStringList>

QT_BEGIN_NAMESPACE
class QObject;
class QTranslator;
QT_END_NAMESPACE

namespace tvl {
class SimpleCommandLineParser;
}

namespace tvl::updater {

/// Version of the launcher library.
LIBUPDATER_EXPORT extern const char* const UPDATER_VERSION;
/// Source revision the library was built from.
LIBUPDATER_EXPORT extern const char* const UPDATER_REVISION;
/// Settings key under which the host publishes UPDATER_VERSION.
LIBUPDATER_EXPORT extern const char* const UPSETTING_UPDATER_VERSION;
/// Settings key under which the host publishes UPDATER_REVISION.
LIBUPDATER_EXPORT extern const char* const UPSETTING_UPDATER_REVISION;

/**
 * The standard locations that tv_default_path() understands, with the numbers and names they
 * have always had in this library's interface, so that callers write
 * `tv_default_path(DesktopServices::DataLocation)`.
 *
 * tv_default_path() asks QStandardPaths::writableLocation() with the organisation and
 * application names cleared, and each value maps to:
 *
 * | value                    | QStandardPaths location  | on Linux (XDG)                        |
 * |--------------------------|--------------------------|---------------------------------------|
 * | DesktopLocation      0   | DesktopLocation          | XDG_DESKTOP_DIR, else ~/Desktop       |
 * | DocumentsLocation    1   | DocumentsLocation        | XDG_DOCUMENTS_DIR, else ~/Documents   |
 * | FontsLocation        2   | FontsLocation            | $XDG_DATA_HOME/fonts                  |
 * | ApplicationsLocation 3   | ApplicationsLocation     | $XDG_DATA_HOME/applications           |
 * | MusicLocation        4   | MusicLocation            | XDG_MUSIC_DIR, else ~/Music           |
 * | MoviesLocation       5   | MoviesLocation           | XDG_VIDEOS_DIR, else ~/Videos         |
 * | PicturesLocation     6   | PicturesLocation         | XDG_PICTURES_DIR, else ~/Pictures     |
 * | TempLocation         7   | TempLocation             | $TMPDIR, else /tmp                    |
 * | HomeLocation         8   | HomeLocation             | $HOME                                 |
 * | DataLocation         9   | GenericDataLocation      | $XDG_DATA_HOME, else ~/.local/share   |
 * | CacheLocation       10   | GenericCacheLocation     | $XDG_CACHE_HOME, else ~/.cache        |
 *
 * DataLocation and CacheLocation stand for AppDataLocation and CacheLocation of
 * QStandardPaths, which append the organisation and application names. With both names
 * cleared they are the locations shared by all applications, and that is what
 * tv_default_path() asks for. (Qt 6 cannot actually clear the application name of a running
 * application object: it falls back to the executable's name, so the generic locations are
 * named directly.)
 */
struct DesktopServices
{
    enum StandardLocation {
        DesktopLocation = 0,
        DocumentsLocation = 1,
        FontsLocation = 2,
        ApplicationsLocation = 3,
        MusicLocation = 4,
        MoviesLocation = 5,
        PicturesLocation = 6,
        TempLocation = 7,
        HomeLocation = 8,
        DataLocation = 9,
        CacheLocation = 10
    };
};

/// Remembers where the updater's executable lives; tv_restart_updater() starts it. No check.
LIBUPDATER_EXPORT void tv_set_application_path(const QString& path);
/// The path given to tv_set_application_path(); empty until then.
LIBUPDATER_EXPORT QString tv_application_path();

/**
 * Remembers the user preferences directory, where the crash marker lives. No check: an empty
 * path makes tv_setup_crash_handler() refuse to start.
 */
LIBUPDATER_EXPORT void tv_set_user_preferences_path(const QString& path);
/// The path given to tv_set_user_preferences_path(); empty until then.
LIBUPDATER_EXPORT QString tv_user_preferences_path();

/**
 * The standard location `location` (a DesktopServices::StandardLocation) shared by all
 * applications, without trailing slashes ("/" gives an empty string). The organisation and
 * application names are cleared while the location is looked up and restored afterwards.
 * An unknown value gives an empty string. Nothing is created.
 */
LIBUPDATER_EXPORT QString tv_default_path(int location);

/**
 * Names the calling process as the kernel shows it (/proc/self/comm, ps, top): `name` without
 * its space characters, in the local 8-bit encoding; the kernel keeps at most 15 bytes. The Qt
 * application name stays as it is; a failure is ignored.
 */
LIBUPDATER_EXPORT void tv_set_application_name(const QString& name);

/**
 * The updater's command line, parsed on the first call from QCoreApplication::arguments()
 * (safe against concurrent first calls) and kept until the process exits. Never null.
 */
LIBUPDATER_EXPORT tvl::SimpleCommandLineParser* tv_updater_args();

/**
 * The name of the GUI style the application started with, taken on the first call in a
 * QApplication and cached; later style changes are not seen. Empty in a console application.
 */
LIBUPDATER_EXPORT QString tv_system_style();

/**
 * Stores `translator` as the default translator and returns the one stored before (null at
 * first). The translator is neither owned nor installed.
 */
LIBUPDATER_EXPORT QTranslator* tv_default_translator(QTranslator* translator);

/**
 * Lays the crash marker "/.crash_handler_marker" in the user preferences directory and
 * registers its removal for the destruction of the application object. A marker left over
 * from an earlier run means that run never got there: tv_previous_run_crashed() is then true.
 *
 * The process that lays the marker holds a lock on it until it ends. A marker whose lock a
 * running process holds belongs to another launcher of the same user: it is no sign of a crash,
 * this process then lays no marker of its own and never removes that one. A run that crashes or
 * is killed releases the lock, so its marker reads as a crash at the next start.
 *
 * Returns true when the marker is in place (ours or that of another running launcher; also on
 * any later call), false when the preferences path is not set or the marker cannot be created.
 */
LIBUPDATER_EXPORT bool tv_setup_crash_handler();
/**
 * Removes the marker this process laid, once; runs as a Qt post routine and before a restart
 * is launched. When the preferences path changed since the marker was laid, the marker under
 * the new path is removed instead, unless another running launcher holds it.
 */
LIBUPDATER_EXPORT void tv_cleanup_crash_handler();
/// True when tv_setup_crash_handler() found the marker of a run that did not exit in order.
LIBUPDATER_EXPORT bool tv_previous_run_crashed();
/// True while this process holds the crash marker it laid.
LIBUPDATER_EXPORT bool tv_crash_marker_owned();

/**
 * Notes in the crash marker that the library of `plugin` (the file `library`) is being loaded
 * or its init() runs, so that the next start can tell which plugin was running should this
 * process die now; an empty name notes that no plugin is starting. Does nothing unless this
 * process holds the marker.
 */
LIBUPDATER_EXPORT void tv_note_starting_plugin(const QString& plugin, const QString& library = QString());
/// The plugin noted as starting when the previous run died; empty when none was, or when the
/// previous run did not crash.
LIBUPDATER_EXPORT QString tv_previous_run_crashed_plugin();
/// How many runs in a row died while that plugin was starting (0 when there is no such plugin).
LIBUPDATER_EXPORT int tv_previous_run_crash_count();
/**
 * Removes the crash marker this process holds with async-signal-safe calls only, for a process
 * that is about to end without its orderly teardown at the user's request (a second
 * termination signal). False when this process holds no marker.
 */
LIBUPDATER_EXPORT bool tv_remove_crash_marker_now();

/**
 * Asks for the updater to be started again once the application object is destroyed. The new
 * command line is the application path (or, when it is empty, the running executable), the
 * current arguments without the program if `keepCurrentArguments`, "--restart", then
 * `arguments`. A later call replaces the command of an earlier one; only one process is
 * started. Always returns true.
 */
LIBUPDATER_EXPORT bool tv_restart_updater(const QStringList& arguments = QStringList(),
                                          bool keepCurrentArguments = false);
/// Starts the command recorded by tv_restart_updater(), detached, and forgets it; runs as a
/// Qt post routine.
LIBUPDATER_EXPORT void do_restart_updater();

/**
 * Tells the user about an error the updater cannot go on after. In a QApplication a modal
 * critical message box with `title`, `text` (plain text), `details` as informative text if
 * any, and one "Quit" button; otherwise the line "FATAL: [title] text" on standard output,
 * without `details`. The caller decides what happens next.
 */
LIBUPDATER_EXPORT void tv_display_critical_error(const QString& title, const QString& text,
                                                 const QString& details = QString());

/**
 * Logs at level 5 that code run for `object` let a C++ exception out of `operation`, naming the
 * plugin that owns `object` (or its class when no plugin does); `what` is the exception's text,
 * null when it is no std::exception. For hosts that catch what event handlers throw in
 * QCoreApplication::notify().
 */
LIBUPDATER_EXPORT void tv_log_plugin_exception(const QObject* object, const char* operation, const char* what);

} // namespace tvl::updater
