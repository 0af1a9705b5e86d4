#include "InstallDirectory_p.h"

#include "Manifest_p.h"

#include <basix/Filesystem.h>
#include <basix/Logger.h>

#include <QtCore/QDateTime>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QLockFile>
#include <QtCore/QSaveFile>
#include <QtCore/QThread>

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tvl::vantor {

namespace {

void (*commitStepHook)(int) = nullptr;

QByteArray encoded(const QString& path)
{
    return QFile::encodeName(path);
}

QJsonArray toArray(const QStringList& list)
{
    return QJsonArray::fromStringList(list);
}

QStringList toStringList(const QJsonValue& value)
{
    QStringList list;
    for (const QJsonValue& item : value.toArray())
        list.append(item.toString());
    return list;
}

bool exists(const QString& path)
{
    struct stat status;
    return ::lstat(encoded(path).constData(), &status) == 0;
}

QString systemError(const QString& what, const QString& path, int error)
{
    return QStringLiteral("%1 %2: %3").arg(what, path, qt_error_string(error));
}

} // namespace

void setCommitStepHook(void (*hook)(int))
{
    commitStepHook = hook;
}

QByteArray InstallState::toJson() const
{
    QJsonObject serialObject;
    for (auto it = serials.cbegin(); it != serials.cend(); ++it)
        serialObject.insert(it.key(), it.value());
    return QJsonDocument(QJsonObject{{QStringLiteral("project"), project},
                                     {QStringLiteral("channel"), channel},
                                     {QStringLiteral("version"), version},
                                     {QStringLiteral("manifest"), QString::fromLatin1(manifestSha256)},
                                     {QStringLiteral("serials"), serialObject},
                                     {QStringLiteral("pinned"), pinned}})
        .toJson(QJsonDocument::Indented);
}

bool InstallState::fromJson(const QByteArray& json)
{
    const QJsonObject object = QJsonDocument::fromJson(json).object();
    project = object.value(QStringLiteral("project")).toString();
    channel = object.value(QStringLiteral("channel")).toString();
    version = object.value(QStringLiteral("version")).toString();
    manifestSha256 = object.value(QStringLiteral("manifest")).toString().toLatin1();
    pinned = object.value(QStringLiteral("pinned")).toBool();
    serials.clear();
    const QJsonObject serialObject = object.value(QStringLiteral("serials")).toObject();
    for (auto it = serialObject.begin(); it != serialObject.end(); ++it)
        serials.insert(it.key(), it.value().toInteger());
    return !project.isEmpty() && !channel.isEmpty() && !version.isEmpty();
}

QByteArray Journal::toJson() const
{
    QJsonArray moveArray;
    for (const auto& [from, to] : moves)
        moveArray.append(QJsonArray{from, to});
    return QJsonDocument(QJsonObject{{QStringLiteral("deletes"), toArray(deletes)},
                                     {QStringLiteral("removeDirectories"), toArray(removeDirectories)},
                                     {QStringLiteral("makeDirectories"), toArray(makeDirectories)},
                                     {QStringLiteral("moves"), moveArray},
                                     {QStringLiteral("swapRollback"), swapRollback},
                                     {QStringLiteral("dropRollback"), dropRollback},
                                     {QStringLiteral("uninstall"), uninstall}})
        .toJson(QJsonDocument::Compact);
}

bool Journal::fromJson(const QByteArray& json)
{
    QJsonParseError error;
    const QJsonObject object = QJsonDocument::fromJson(json, &error).object();
    if (error.error != QJsonParseError::NoError)
        return false;
    deletes = toStringList(object.value(QStringLiteral("deletes")));
    removeDirectories = toStringList(object.value(QStringLiteral("removeDirectories")));
    makeDirectories = toStringList(object.value(QStringLiteral("makeDirectories")));
    moves.clear();
    for (const QJsonValue& move : object.value(QStringLiteral("moves")).toArray())
        moves.append({move.toArray().at(0).toString(), move.toArray().at(1).toString()});
    swapRollback = object.value(QStringLiteral("swapRollback")).toBool();
    dropRollback = object.value(QStringLiteral("dropRollback")).toBool();
    uninstall = object.value(QStringLiteral("uninstall")).toBool();
    // A journal is only ever read back from our own directory, but its paths still go through
    // the same gate as a manifest's.
    for (const QString& path : deletes + removeDirectories + makeDirectories) {
        if (!isSafeRelativePath(path))
            return false;
    }
    for (const auto& [from, to] : std::as_const(moves)) {
        if (!isSafeRelativePath(from) || !isSafeRelativePath(to))
            return false;
    }
    return true;
}

InstallDirectory::InstallDirectory(const QString& root)
    : m_root(QDir::cleanPath(QDir(root).absolutePath()))
{
}

InstallDirectory::~InstallDirectory() = default;

QString InstallDirectory::meta(const QString& name) const
{
    return name.isEmpty() ? m_root + QStringLiteral("/.vantor") : m_root + QStringLiteral("/.vantor/") + name;
}

ErrorCode InstallDirectory::codeFor(int error)
{
    switch (error) {
    case ENOSPC:
    case EDQUOT:
        return ErrorCode::DiskFull;
    case EACCES:
    case EPERM:
    case EROFS:
        return ErrorCode::PermissionDenied;
    default:
        return ErrorCode::IoError;
    }
}

int InstallDirectory::replaceFile(const QString& path, QByteArrayView data)
{
    static std::atomic<quint64> counter{0};
    const QByteArray target = encoded(path);
    const QByteArray temporary = target + ".part" + QByteArray::number(::getpid()) + '.' + QByteArray::number(counter++);
    const int fd = ::open(temporary.constData(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0644);
    if (fd < 0)
        return errno;
    int error = 0;
    for (qsizetype written = 0; written < data.size() && !error;) {
        const ssize_t n = ::write(fd, data.data() + written, size_t(data.size() - written));
        if (n < 0 && errno != EINTR)
            error = errno;
        else if (n > 0)
            written += n;
    }
    if (::close(fd) != 0 && !error)
        error = errno;
    if (!error && ::rename(temporary.constData(), target.constData()) != 0)
        error = errno;
    if (error)
        ::unlink(temporary.constData());
    return error;
}

void InstallDirectory::syncFileSystem(const QString& path)
{
    const int fd = ::open(encoded(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::syncfs(fd);
        ::close(fd);
    }
}

ErrorCode InstallDirectory::lock(int timeoutMs, QString* error)
{
    if (!QDir().mkpath(meta())) {
        const int code = errno;
        *error = systemError(QStringLiteral("Cannot create"), meta(), code)
            + QStringLiteral(". Choose a directory you may write to.");
        return codeFor(code) == ErrorCode::IoError ? ErrorCode::PermissionDenied : codeFor(code);
    }
    m_lock = std::make_unique<QLockFile>(meta(QStringLiteral("lock")));
    // A long update must not look abandoned: only a lock whose process is gone is stale.
    m_lock->setStaleLockTime(0);
    if (m_lock->tryLock(timeoutMs))
        return ErrorCode::NoError;
    qint64 ownerPid = 0;
    QString ownerHost, ownerApplication;
    if (m_lock->error() == QLockFile::LockFailedError && !m_lock->getLockInfo(&ownerPid, &ownerHost, &ownerApplication)) {
        // A lock file without its owner's record: a process died between creating the file and
        // writing into it, which takes microseconds. One that stays so for a second is taken over.
        const QString lockPath = meta(QStringLiteral("lock"));
        const qint64 age = QFileInfo(lockPath).lastModified().msecsTo(QDateTime::currentDateTime());
        if (age < 1000)
            QThread::msleep(ulong(std::clamp<qint64>(1000 - age, 0, 1000)));
        if (!m_lock->getLockInfo(&ownerPid, &ownerHost, &ownerApplication)) {
            TVL_LOG(tvl::Logger::Notice) << "Taking over the abandoned lock file" << lockPath;
            m_lock->removeStaleLockFile();
            if (m_lock->tryLock(timeoutMs))
                return ErrorCode::NoError;
        }
    }
    if (m_lock->error() == QLockFile::LockFailedError) {
        qint64 pid = 0;
        QString host, application;
        m_lock->getLockInfo(&pid, &host, &application);
        *error = QStringLiteral("Another process (%1, pid %2) is working on %3. Wait for it to end, then run "
                                "this again.").arg(application, QString::number(pid), m_root);
        return ErrorCode::Locked;
    }
    *error = QStringLiteral("Cannot take the lock of %1: permission denied. Choose a directory you may write to.")
                 .arg(m_root);
    return ErrorCode::PermissionDenied;
}

void InstallDirectory::unlock()
{
    m_lock.reset();
}

bool InstallDirectory::isInstalled() const
{
    return QFile::exists(meta(QStringLiteral("state.json")));
}

ErrorCode InstallDirectory::readState(InstallState* state, QString* error) const
{
    QFile file(meta(QStringLiteral("state.json")));
    if (!file.exists()) {
        *error = QStringLiteral("Nothing is installed in %1: install first.").arg(m_root);
        return ErrorCode::NotInstalled;
    }
    if (!file.open(QIODevice::ReadOnly) || !state->fromJson(file.readAll())) {
        *error = QStringLiteral("The records in %1 are unreadable: uninstall and install again.").arg(meta());
        return ErrorCode::CorruptState;
    }
    return ErrorCode::NoError;
}

ErrorCode InstallDirectory::readManifest(Manifest* manifest, QString* error) const
{
    QFile file(meta(QStringLiteral("manifest.json")));
    QString reason;
    if (!file.open(QIODevice::ReadOnly) || !manifest->fromJson(file.readAll(), &reason)) {
        *error = QStringLiteral("The installed manifest in %1 is unreadable (%2): uninstall and install again.")
                     .arg(meta(), reason.isEmpty() ? file.errorString() : reason);
        return ErrorCode::CorruptState;
    }
    return ErrorCode::NoError;
}

ErrorCode InstallDirectory::writeState(const InstallState& state, QString* error) const
{
    QSaveFile file(meta(QStringLiteral("state.json")));
    if (!file.open(QIODevice::WriteOnly) || file.write(state.toJson()) < 0 || !file.commit()) {
        *error = QStringLiteral("Cannot write %1: %2").arg(file.fileName(), file.errorString());
        return ErrorCode::IoError;
    }
    return ErrorCode::NoError;
}

ErrorCode InstallDirectory::recover(QString* error)
{
    QFile file(meta(QStringLiteral("journal.json")));
    if (!file.exists())
        return ErrorCode::NoError;
    Journal journal;
    if (!file.open(QIODevice::ReadOnly) || !journal.fromJson(file.readAll())) {
        *error = QStringLiteral("The journal in %1 is unreadable: run \"vantor repair\".").arg(meta());
        return ErrorCode::CorruptState;
    }
    TVL_LOG(tvl::Logger::Notice) << "Completing the interrupted change of" << m_root;
    return apply(journal, error);
}

ErrorCode InstallDirectory::commit(const Journal& journal, QString* error)
{
    if (const int code = replaceFile(meta(QStringLiteral("journal.json")), journal.toJson())) {
        *error = systemError(QStringLiteral("Cannot write the journal"), meta(QStringLiteral("journal.json")), code)
            + QStringLiteral(". Nothing was changed.");
        return codeFor(code);
    }
    // One flush for everything staged and the journal, before the first move.
    syncFileSystem(m_root);
    return apply(journal, error);
}

ErrorCode InstallDirectory::apply(const Journal& journal, QString* error)
{
    int step = 0;
    const auto stepDone = [&step] {
        if (commitStepHook)
            commitStepHook(++step);
    };
    stepDone();
    const auto failed = [&](const QString& what, const QString& path) {
        const int code = errno;
        *error = systemError(what, path, code)
            + QStringLiteral(". The change is recorded and will be completed by the next run once this is fixed.");
        return codeFor(code);
    };

    for (const QString& relative : journal.deletes) {
        struct stat status;
        const QByteArray target = encoded(path(relative));
        if (::lstat(target.constData(), &status) == 0 && !S_ISDIR(status.st_mode) && ::unlink(target.constData()) != 0
            && errno != ENOENT)
            return failed(QStringLiteral("Cannot remove"), path(relative));
    }
    stepDone();
    for (const QString& relative : journal.removeDirectories)
        ::rmdir(encoded(path(relative)).constData()); // one still holding files of the user's stays
    for (const QString& relative : journal.makeDirectories) {
        // Whatever stands where a directory belongs (a file, a foreign link) is not part of this
        // version and must not redirect what is placed below it.
        QString walked = m_root;
        for (const QString& part : relative.split(QLatin1Char('/'))) {
            walked += QLatin1Char('/') + part;
            const QByteArray name = encoded(walked);
            struct stat status;
            if (::lstat(name.constData(), &status) == 0) {
                if (S_ISDIR(status.st_mode))
                    continue;
                ::unlink(name.constData());
            }
            if (::mkdir(name.constData(), 0755) != 0 && errno != EEXIST)
                return failed(QStringLiteral("Cannot create"), walked);
        }
    }
    stepDone();
    for (const auto& [from, to] : journal.moves) {
        const QByteArray source = encoded(staging(from));
        if (!exists(staging(from)))
            continue; // moved by an earlier run
        const QString target = path(to);
        struct stat status;
        if (::lstat(encoded(target).constData(), &status) == 0 && S_ISDIR(status.st_mode))
            tvl::Filesystem::remove(target, tvl::Filesystem::Recursive);
        if (::rename(source.constData(), encoded(target).constData()) != 0)
            return failed(QStringLiteral("Cannot move a new file to"), target);
        stepDone();
    }
    const QString rollback = meta(QStringLiteral("rollback")), rollbackNew = meta(QStringLiteral("rollback.new"));
    if (journal.swapRollback && exists(rollbackNew)) {
        tvl::Filesystem::remove(rollback, tvl::Filesystem::Recursive | tvl::Filesystem::IgnoreMissing);
        if (::rename(encoded(rollbackNew).constData(), encoded(rollback).constData()) != 0)
            return failed(QStringLiteral("Cannot keep the previous version in"), rollback);
    }
    if (journal.dropRollback || journal.uninstall) {
        tvl::Filesystem::remove(rollback, tvl::Filesystem::Recursive | tvl::Filesystem::IgnoreMissing);
        tvl::Filesystem::remove(rollbackNew, tvl::Filesystem::Recursive | tvl::Filesystem::IgnoreMissing);
    }
    stepDone();
    for (const QString& name : {QStringLiteral("manifest.json"), QStringLiteral("state.json")}) {
        if (exists(staging(name)) && ::rename(encoded(staging(name)).constData(), encoded(meta(name)).constData()) != 0)
            return failed(QStringLiteral("Cannot record the new version in"), meta(name));
    }
    if (journal.uninstall) {
        QFile::remove(meta(QStringLiteral("state.json")));
        QFile::remove(meta(QStringLiteral("manifest.json")));
    }
    stepDone();
    syncFileSystem(m_root);
    stepDone();
    QFile::remove(meta(QStringLiteral("journal.json")));
    tvl::Filesystem::remove(staging(), tvl::Filesystem::Recursive | tvl::Filesystem::IgnoreMissing);
    tvl::Filesystem::remove(meta(QStringLiteral("partial")), tvl::Filesystem::Recursive | tvl::Filesystem::IgnoreMissing);
    stepDone();
    return ErrorCode::NoError;
}

} // namespace tvl::vantor
