// The crash marker: a file in the user preferences directory that exists while a launcher runs and
// holds a lock on it, and that names the plugin being started at any moment.
// Its records belong to the runtime functions declared in Updater.h, and carry their source name.
#define TVL_LOG_SOURCE "libupdater/Updater"

#include "Updater.h"

#include <basix/Filesystem.h>
#include <basix/Logger.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tvl::updater {

namespace {

enum CrashHandlerFlag {
    PreviousRunCrashed = 0x1,
    CrashHandlerSetUp = 0x2
};
int s_state = 0;
bool s_cleanedUp = false;

// The marker this process laid, locked until it is removed or the process ends; -1 when this
// process holds none. The path is kept as bytes for the async-signal-safe removal.
std::atomic<int> s_markerFd{-1};
char s_markerPath[PATH_MAX] = {};

QString s_previousPlugin;
int s_previousCrashes = 0;

// Attempts at opening and locking a marker that other launchers create and remove meanwhile.
constexpr int LockAttempts = 8;
// A marker is a few lines; anything larger is not ours to parse.
constexpr qint64 MaximumMarkerSize = 64 * 1024;

QString crashMarkerPath()
{
    return tv_user_preferences_path() + QStringLiteral("/.crash_handler_marker");
}

bool sameFile(int fd, const QByteArray& path)
{
    struct stat opened = {};
    struct stat current = {};
    return ::fstat(fd, &opened) == 0 && ::stat(path.constData(), &current) == 0 && opened.st_dev == current.st_dev
        && opened.st_ino == current.st_ino;
}

/// Reads "key=value" lines of a marker left by a run that died.
void readPreviousRun(int fd)
{
    QFile marker;
    if (!marker.open(fd, QIODevice::ReadOnly, QFileDevice::DontCloseHandle))
        return;
    const QList<QByteArray> lines = marker.read(MaximumMarkerSize).split('\n');
    QString plugin;
    int crashes = 0;
    for (const QByteArray& line : lines) {
        if (line.startsWith("plugin="))
            plugin = QString::fromUtf8(line.mid(7));
        else if (line.startsWith("crashes="))
            crashes = line.mid(8).toInt();
    }
    if (plugin.isEmpty())
        return;
    s_previousPlugin = plugin;
    s_previousCrashes = qMax(1, crashes);
}

void writeMarker(int fd, const QByteArray& text)
{
    // Truncated first: a run that dies in between leaves an empty marker, never a mix of two notes.
    if (::ftruncate(fd, 0) != 0 || ::pwrite(fd, text.constData(), size_t(text.size()), 0) != text.size())
        TVL_LOG(Logger::Debug) << "Cannot write the crash marker:" << QString::fromLocal8Bit(std::strerror(errno));
}

QByteArray processLine()
{
    return "pid=" + QByteArray::number(qint64(::getpid())) + '\n';
}

enum class LockResult { Locked, HeldByOther, Failed };

/// Opens the marker at `path`, creating it if needed, and locks it; `existed` tells whether the
/// file was there before.
LockResult lockMarker(const QByteArray& path, int* fd, bool* existed)
{
    for (int attempt = 0; attempt < LockAttempts; ++attempt) {
        *existed = true;
        int opened = ::open(path.constData(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
        if (opened < 0 && errno == ENOENT) {
            *existed = false;
            opened = ::open(path.constData(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
            if (opened < 0 && errno == EEXIST)
                continue; // another launcher created it just now
        }
        if (opened < 0)
            return LockResult::Failed;
        if (::flock(opened, LOCK_EX | LOCK_NB) != 0) {
            const int error = errno;
            ::close(opened);
            return error == EWOULDBLOCK ? LockResult::HeldByOther : LockResult::Failed;
        }
        // Its owner may have removed the file between our open and our lock.
        if (!sameFile(opened, path)) {
            ::close(opened);
            continue;
        }
        *fd = opened;
        return LockResult::Locked;
    }
    return LockResult::Failed;
}

} // namespace

bool tv_setup_crash_handler()
{
    if (s_state & CrashHandlerSetUp)
        return true;

    if (tv_user_preferences_path().isEmpty()) {
        TVL_LOG(Logger::Warning) << "tv_setup_crash_handler() : call tv_set_user_preferences_path() first";
        return false;
    }

    const QString marker = crashMarkerPath();
    const QByteArray path = QFile::encodeName(marker);
    int fd = -1;
    bool existed = false;
    const LockResult result = path.size() < qsizetype(sizeof s_markerPath) ? lockMarker(path, &fd, &existed)
                                                                            : LockResult::Failed;
    if (result == LockResult::HeldByOther) {
        // Another launcher of this user runs and holds the marker: nothing crashed, and the
        // marker stays that launcher's to remove.
        TVL_LOG(Logger::Notice) << "Another running launcher holds the crash marker" << marker;
        s_state |= CrashHandlerSetUp;
        return true;
    }
    if (result == LockResult::Failed) {
        TVL_LOG(Logger::Warning) << "tv_setup_crash_handler() : initialization failed";
        return false;
    }

    if (existed) {
        TVL_LOG(Logger::Warning) << "Previous execution crashed";
        s_state |= PreviousRunCrashed;
        readPreviousRun(fd);
        if (!s_previousPlugin.isEmpty()) {
            TVL_LOG(Logger::Warning) << QStringLiteral("The previous run ended while plugin '%1' was starting (%2 run(s) in a row)")
                                            .arg(s_previousPlugin)
                                            .arg(s_previousCrashes);
        }
    }
    writeMarker(fd, processLine());
    std::memcpy(s_markerPath, path.constData(), size_t(path.size()) + 1);
    s_markerFd.store(fd);
    Filesystem::setHidden(marker, true);
    qAddPostRoutine(tv_cleanup_crash_handler);

    s_state |= CrashHandlerSetUp;
    return true;
}

void tv_cleanup_crash_handler()
{
    if (s_cleanedUp)
        return;
    s_cleanedUp = true;
    TVL_LOG(Logger::Debug) << "tv_cleanup_crash_handler()";

    const QByteArray current = QFile::encodeName(crashMarkerPath());
    const int fd = s_markerFd.exchange(-1);
    if (fd >= 0 && current == QByteArray(s_markerPath)) {
        // Removed while still locked, so that no other launcher takes the old file for a crash.
        const bool removed = ::unlink(s_markerPath) == 0;
        ::close(fd);
        if (!removed)
            TVL_LOG(Logger::Warning) << "tv_cleanup_crash_handler() : failed";
        return;
    }
    if (fd >= 0)
        ::close(fd);

    // The preferences path changed since the marker was laid: the marker there goes, unless a
    // running launcher holds it.
    int other = -1;
    bool existed = false;
    if (::access(current.constData(), F_OK) != 0 || lockMarker(current, &other, &existed) != LockResult::Locked) {
        TVL_LOG(Logger::Warning) << "tv_cleanup_crash_handler() : failed";
        return;
    }
    if (!Filesystem::remove(crashMarkerPath(), Filesystem::NoRemoveOptions))
        TVL_LOG(Logger::Warning) << "tv_cleanup_crash_handler() : failed";
    ::close(other);
}

bool tv_previous_run_crashed()
{
    return s_state & PreviousRunCrashed;
}

bool tv_crash_marker_owned()
{
    return s_markerFd.load() >= 0;
}

void tv_note_starting_plugin(const QString& plugin, const QString& library)
{
    const int fd = s_markerFd.load();
    if (fd < 0)
        return;
    QByteArray text = processLine();
    if (!plugin.isEmpty()) {
        const int crashes = plugin == s_previousPlugin ? s_previousCrashes + 1 : 1;
        text += "plugin=" + plugin.toUtf8() + "\nlibrary=" + QFile::encodeName(library) + "\ncrashes="
            + QByteArray::number(crashes) + '\n';
    }
    writeMarker(fd, text);
}

QString tv_previous_run_crashed_plugin()
{
    return s_previousPlugin;
}

int tv_previous_run_crash_count()
{
    return s_previousPlugin.isEmpty() ? 0 : s_previousCrashes;
}

bool tv_remove_crash_marker_now()
{
    const int fd = s_markerFd.exchange(-1);
    if (fd < 0)
        return false;
    ::unlink(s_markerPath);
    ::close(fd);
    return true;
}

} // namespace tvl::updater
