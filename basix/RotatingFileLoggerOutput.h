#pragma once

#include <basix/AbstractLoggerOutput.h>

#include <QtCore/QScopedPointer>

namespace tvl {

/**
 * Writes records to a log file whose size is capped: when the next line would make the file
 * larger than maxBytes(), the file becomes "<path>.1" (an older "<path>.1" becomes "<path>.2",
 * and so on up to backupCount(); the oldest is deleted) and a new file is started. Missing
 * directories are created. The header written at start names the application, its process id
 * and the time. Records are written in formatRecord()'s form, one per line, in UTF-8.
 */
class BASIX_EXPORT RotatingFileLoggerOutput : public AbstractLoggerOutput
{
public:
    explicit RotatingFileLoggerOutput(const QString& path, qint64 maxBytes = 4 * 1024 * 1024,
                                      int backupCount = 3);
    ~RotatingFileLoggerOutput() override;

    QString path() const;
    qint64 maxBytes() const;
    int backupCount() const;
    /// The last error met when opening, writing or rotating the file; empty when all went well.
    QString errorString() const;

    void writeLogHeader() override;
    void write(const QString& message, const QString& file, const QString& function,
               const QString& threadName, int line, Logger::Level level, const QDateTime& time,
               int threadId) override;
    void flush() override;

private:
    Q_DISABLE_COPY(RotatingFileLoggerOutput)
    QScopedPointer<class RotatingFileLoggerOutputPrivate> d;
};

} // namespace tvl
