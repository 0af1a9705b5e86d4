#include "RotatingFileLoggerOutput.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QMutex>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace tvl {

namespace {

constexpr qsizetype MaximumBuffer = 64 * 1024;
// A file that cannot be opened is tried again at most this often, not on every record.
constexpr qint64 ReopenIntervalMSecs = 1000;

QString applicationName()
{
    const QString name = QCoreApplication::applicationName();
    return name.isEmpty() ? QString::fromLocal8Bit(program_invocation_short_name) : name;
}

} // namespace

class RotatingFileLoggerOutputPrivate
{
public:
    RotatingFileLoggerOutputPrivate(const QString& path, qint64 maxBytes, int backupCount);

    QString backupPath(int index) const;
    bool ensureOpen();
    bool open(QIODevice::OpenMode mode);
    void append(const QByteArray& line);
    void writeOut();
    void rotate();
    void setError(const QString& message);

    const QString path;
    const qint64 maxBytes;
    const int backupCount;
    QFile file;
    QByteArray buffer;
    qint64 size = 0; // of the file, the buffered bytes included
    QElapsedTimer sinceFailedOpen;

    mutable QMutex errorMutex;
    QString error;
};

RotatingFileLoggerOutputPrivate::RotatingFileLoggerOutputPrivate(const QString& path,
                                                                 qint64 maxBytes, int backupCount)
    : path(path)
    , maxBytes(maxBytes)
    , backupCount(qMax(0, backupCount))
{
}

QString RotatingFileLoggerOutputPrivate::backupPath(int index) const
{
    return path + QLatin1Char('.') + QString::number(index);
}

void RotatingFileLoggerOutputPrivate::setError(const QString& message)
{
    QMutexLocker locker(&errorMutex);
    error = message;
}

bool RotatingFileLoggerOutputPrivate::open(QIODevice::OpenMode mode)
{
    const QString directory = QFileInfo(path).absolutePath();
    if (!QDir().mkpath(directory)) {
        setError(QStringLiteral("Cannot create the directory %1").arg(directory));
        return false;
    }
    file.setFileName(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered | mode)) {
        setError(QStringLiteral("Cannot open %1: %2").arg(path, file.errorString()));
        return false;
    }
    size = file.size();
    return true;
}

bool RotatingFileLoggerOutputPrivate::ensureOpen()
{
    if (file.isOpen())
        return true;
    if (sinceFailedOpen.isValid() && sinceFailedOpen.elapsed() < ReopenIntervalMSecs)
        return false;
    if (open(QIODevice::Append)) {
        sinceFailedOpen.invalidate();
        return true;
    }
    sinceFailedOpen.start();
    return false;
}

void RotatingFileLoggerOutputPrivate::append(const QByteArray& line)
{
    if (!ensureOpen())
        return; // dropped: there is nowhere to keep them
    if (maxBytes > 0 && size > 0 && size + line.size() > maxBytes) {
        writeOut();
        rotate();
        if (!file.isOpen())
            return;
    }
    buffer += line;
    size += line.size();
    if (buffer.size() >= MaximumBuffer)
        writeOut();
}

void RotatingFileLoggerOutputPrivate::writeOut()
{
    if (buffer.isEmpty() || !file.isOpen())
        return;
    if (file.write(buffer) != buffer.size()) {
        setError(QStringLiteral("Cannot write to %1: %2").arg(path, file.errorString()));
        size = file.size();
    }
    buffer.resize(0);
}

void RotatingFileLoggerOutputPrivate::rotate()
{
    file.close();
    const auto move = [](const QString& from, const QString& to) {
        // rename(2) replaces the target in one step; QFile::rename refuses to.
        return std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData())
            == 0;
    };
    if (backupCount > 0) {
        QFile::remove(backupPath(backupCount));
        for (int index = backupCount - 1; index >= 1; --index) {
            if (!move(backupPath(index), backupPath(index + 1)) && errno != ENOENT) {
                setError(QStringLiteral("Cannot rename %1: %2")
                             .arg(backupPath(index), QString::fromLocal8Bit(std::strerror(errno))));
            }
        }
        if (!move(path, backupPath(1))) {
            setError(QStringLiteral("Cannot rename %1: %2")
                         .arg(path, QString::fromLocal8Bit(std::strerror(errno))));
            // Going on past the cap beats truncating the only copy of these records.
            open(QIODevice::Append);
            return;
        }
    }
    open(QIODevice::Truncate);
}

RotatingFileLoggerOutput::RotatingFileLoggerOutput(const QString& path, qint64 maxBytes,
                                                   int backupCount)
    : d(new RotatingFileLoggerOutputPrivate(path, maxBytes, backupCount))
{
}

RotatingFileLoggerOutput::~RotatingFileLoggerOutput()
{
    d->writeOut();
}

QString RotatingFileLoggerOutput::path() const
{
    return d->path;
}

qint64 RotatingFileLoggerOutput::maxBytes() const
{
    return d->maxBytes;
}

int RotatingFileLoggerOutput::backupCount() const
{
    return d->backupCount;
}

QString RotatingFileLoggerOutput::errorString() const
{
    QMutexLocker locker(&d->errorMutex);
    return d->error;
}

void RotatingFileLoggerOutput::writeLogHeader()
{
    const QString header = QStringLiteral("---- %1 (pid %2) started %3 ----\n")
                               .arg(applicationName(),
                                    QString::number(QCoreApplication::applicationPid()),
                                    QDateTime::currentDateTime().toString(
                                        QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz t")));
    d->append(header.toUtf8());
}

void RotatingFileLoggerOutput::write(const QString& message, const QString& file,
                                     const QString& function, const QString& threadName,
                                     int line, Logger::Level level, const QDateTime& time,
                                     int threadId)
{
    QString text = formatRecord(message, file, function, threadName, line, level, time, threadId);
    text += QLatin1Char('\n');
    d->append(text.toUtf8());
}

void RotatingFileLoggerOutput::flush()
{
    d->writeOut();
}

} // namespace tvl
