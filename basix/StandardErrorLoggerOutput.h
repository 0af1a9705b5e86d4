#pragma once

#include <basix/AbstractLoggerOutput.h>

#include <QtCore/QScopedPointer>

namespace tvl {

/**
 * Writes each record on one line to the process's standard error, in formatRecord()'s form and
 * UTF-8. The lines of a batch are collected and written together in flush().
 */
class BASIX_EXPORT StandardErrorLoggerOutput : public AbstractLoggerOutput
{
public:
    StandardErrorLoggerOutput();
    ~StandardErrorLoggerOutput() override;

    void writeLogHeader() override;
    void write(const QString& message, const QString& file, const QString& function,
               const QString& threadName, int line, Logger::Level level, const QDateTime& time,
               int threadId) override;
    void flush() override;

private:
    Q_DISABLE_COPY(StandardErrorLoggerOutput)
    QScopedPointer<class StandardErrorLoggerOutputPrivate> d;
};

} // namespace tvl
