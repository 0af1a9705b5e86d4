#pragma once

#include <basix/BasixExport.h>
#include <basix/Logger.h>

#include <QtCore/QDateTime>
#include <QtCore/QString>

namespace tvl {

/**
 * A destination of log records. The logger calls an output from its output thread only, one
 * call at a time: writeLogHeader() once when the output is added, then write() per record,
 * and flush() after each batch of records.
 */
class BASIX_EXPORT AbstractLoggerOutput
{
public:
    virtual ~AbstractLoggerOutput();

    /// Called once, before the first record, when the output is added to the logger.
    virtual void writeLogHeader() = 0;

    /**
     * One record. `file` is the source name as the caller gave it, `threadName` the name of
     * the logging thread (its QThread object name or, failing that, the name the system knows
     * it by), `threadId` the system's id of that thread.
     */
    virtual void write(const QString& message, const QString& file, const QString& function,
                       const QString& threadName, int line, Logger::Level level,
                       const QDateTime& time, int threadId) = 0;

    /// Called after a batch of records; outputs that buffer write their buffer out here.
    virtual void flush();

    /**
     * The one-line form the standard outputs use:
     * "2026-11-21 14:03:07.512 Warning [main:4711] libupdater/UpdaterPluginInfo:88 loadPlugin: text"
     * (no line break at the end; the time in local time). The parts are separated by one space
     * and an empty part is left out with its space: no function gives "file:line text", a line
     * of 0 or less gives "file function: text", no file leaves out the line too, and a thread
     * without a name is shown as "[4711]". A message of several lines is kept as it is.
     */
    static QString formatRecord(const QString& message, const QString& file,
                                const QString& function, const QString& threadName, int line,
                                Logger::Level level, const QDateTime& time, int threadId);
};

} // namespace tvl
