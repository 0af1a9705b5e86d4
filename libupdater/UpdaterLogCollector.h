#pragma once

#include <libupdater/LibupdaterExport.h>

#include <basix/AbstractLoggerOutput.h>

#include <QtCore/QObject>
#include <QtCore/QString>

#include <list>
#include <memory>

namespace tvl::updater {

class UpdaterLogCollectorPrivate;

/**
 * A logger output that keeps recent log lines in memory for a log view.
 *
 * At most about `maxLines` lines are kept. When the list has grown past that, ordinary lines
 * (level 4 and below) are dropped from the oldest on, while errors (level 5 and above) survive
 * as long as at least half of `maxLines` remain. Once `maxLines` errors have been seen in
 * total, only errors are kept from then on, and none of them is dropped any more.
 *
 * Register it with tvl::Logger::addOutput(); an instance owned by the caller must be removed
 * with tvl::Logger::removeOutput() before it is destroyed. write() runs on the logger's output
 * thread, lines() may be called from any thread, and newLog reaches receivers in other threads
 * through queued connections.
 */
class LIBUPDATER_EXPORT UpdaterLogCollector : public QObject, public tvl::AbstractLoggerOutput
{
    Q_OBJECT

public:
    struct Line
    {
        int level;
        QString text;
    };

    explicit UpdaterLogCollector(int maxLines);
    ~UpdaterLogCollector() override;

    /// A copy of the kept lines, oldest first.
    std::list<Line> lines() const;

    void writeLogHeader() override;
    void write(const QString& message, const QString& file, const QString& function,
               const QString& threadName, int line, tvl::Logger::Level level,
               const QDateTime& time, int threadId) override;

Q_SIGNALS:
    /// Emitted for every line kept, after it has been added; from the thread that wrote it.
    void newLog(int level, const QString& text);

private:
    Q_DISABLE_COPY(UpdaterLogCollector)

    const std::unique_ptr<UpdaterLogCollectorPrivate> d;
};

} // namespace tvl::updater
