#include "Filesystem.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QList>

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tvl {

namespace {

QString systemFailure(const QString& what, const QString& path, int error)
{
    return QStringLiteral("%1 %2: %3").arg(what, path, qt_error_string(error));
}

QString removeFailure(const QByteArray& path, int error)
{
    return systemFailure(QStringLiteral("Cannot remove"), QFile::decodeName(path), error);
}

/// "dir/" names the directory a symbolic link points to, so it would be followed.
QString withoutTrailingSlashes(QString path)
{
    while (path.size() > 1 && path.endsWith(QLatin1Char('/')))
        path.chop(1);
    return path;
}

/// Removes `path` and everything below it without following symbolic links; stops at the first
/// failure and returns its reason, or an empty string.
QString removeTree(const QByteArray& path)
{
    struct stat status;
    if (::lstat(path.constData(), &status) != 0)
        return errno == ENOENT ? QString() : removeFailure(path, errno);

    if (!S_ISDIR(status.st_mode)) {
        if (::unlink(path.constData()) != 0 && errno != ENOENT)
            return removeFailure(path, errno);
        return QString();
    }

    DIR* directory = ::opendir(path.constData());
    if (!directory)
        return removeFailure(path, errno);
    // The listing is finished before anything is removed: removing entries while readdir()
    // walks the directory may skip some.
    QList<QByteArray> children;
    errno = 0;
    while (const dirent* entry = ::readdir(directory)) {
        const QByteArray name(entry->d_name);
        if (name != "." && name != "..")
            children.append(path + '/' + name);
        errno = 0;
    }
    const int listError = errno;
    ::closedir(directory);
    if (listError != 0)
        return removeFailure(path, listError);

    for (const QByteArray& child : std::as_const(children)) {
        const QString failure = removeTree(child);
        if (!failure.isEmpty())
            return failure;
    }
    if (::rmdir(path.constData()) != 0)
        return removeFailure(path, errno);
    return QString();
}

} // namespace

Filesystem::Result Filesystem::Result::failure(const QString& errorString)
{
    Result result;
    result.m_errorString = errorString;
    return result;
}

Filesystem::Result Filesystem::touch(const QString& path)
{
    if (path.isEmpty())
        return Result::failure(QStringLiteral("Cannot touch a file without a name"));

    const QByteArray encoded = QFile::encodeName(path);
    // utimensat() rather than QFile::setFileTime(): it needs no open file, so it also works on
    // a read-only file of ours and on a directory.
    if (::utimensat(AT_FDCWD, encoded.constData(), nullptr, 0) == 0)
        return Result();
    if (errno != ENOENT)
        return Result::failure(systemFailure(QStringLiteral("Cannot set the modification time of"), path, errno));

    const int fd = ::open(encoded.constData(), O_WRONLY | O_CREAT | O_NOCTTY | O_CLOEXEC, 0666);
    if (fd < 0)
        return Result::failure(systemFailure(QStringLiteral("Cannot create"), path, errno));
    ::close(fd);
    return Result();
}

Filesystem::Result Filesystem::setHidden(const QString& path, bool hidden)
{
    const QString verb = hidden ? QStringLiteral("Cannot hide") : QStringLiteral("Cannot show");
    if (path.isEmpty())
        return Result::failure(QStringLiteral("%1 a file without a name").arg(verb));

    struct stat status;
    if (::lstat(QFile::encodeName(path).constData(), &status) != 0)
        return Result::failure(systemFailure(verb, path, errno));

    // The absolute path gives "." and ".." their real names.
    const QString name = QFileInfo(QDir::cleanPath(QFileInfo(path).absoluteFilePath())).fileName();
    const bool isHidden = name.startsWith(QLatin1Char('.'));
    if (isHidden == hidden)
        return Result();
    return Result::failure(hidden
        ? QStringLiteral("Cannot hide %1: only a name starting with a dot hides a file here").arg(path)
        : QStringLiteral("Cannot show %1: its name starts with a dot").arg(path));
}

Filesystem::Result Filesystem::remove(const QString& path, RemoveOptions options)
{
    if (path.isEmpty())
        return Result::failure(QStringLiteral("Cannot remove a file without a name"));

    const QByteArray encoded = QFile::encodeName(withoutTrailingSlashes(path));
    struct stat status;
    if (::lstat(encoded.constData(), &status) != 0) {
        if ((errno == ENOENT || errno == ENOTDIR) && options.testFlag(IgnoreMissing))
            return Result();
        return Result::failure(systemFailure(QStringLiteral("Cannot remove"), path, errno));
    }

    if (S_ISDIR(status.st_mode) && options.testFlag(Recursive))
        return Result::failure(removeTree(encoded));

    const int result = S_ISDIR(status.st_mode) ? ::rmdir(encoded.constData()) : ::unlink(encoded.constData());
    if (result != 0 && !(errno == ENOENT && options.testFlag(IgnoreMissing)))
        return Result::failure(systemFailure(QStringLiteral("Cannot remove"), path, errno));
    return Result();
}

} // namespace tvl
