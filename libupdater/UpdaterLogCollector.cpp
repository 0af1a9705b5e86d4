#include "UpdaterLogCollector.h"

#include <QtCore/QMutex>
#include <QtCore/QMutexLocker>

namespace tvl::updater {

namespace {

constexpr int LastOrdinaryLevel = 4;
constexpr int SevereLevel = 5;

} // namespace

class UpdaterLogCollectorPrivate
{
public:
    explicit UpdaterLogCollectorPrivate(int maxLines) : maxLines(maxLines) {}

    // The logger calls write() from its output thread only, one record at a time, so writers
    // never meet each other. A log view calls lines() from the GUI thread, though, and copying
    // a std::list while another thread unlinks and appends nodes is a data race, so both sides
    // take this mutex. It stays uncontended nearly always and costs the writer a few
    // nanoseconds. lines() copies under the lock: the caller wants a std::list, which has to be
    // built node by node anyway, and a snapshot shared between the two threads would only
    // move that copy onto the output thread, into the next write after every lines() call.
    mutable QMutex mutex;
    std::list<UpdaterLogCollector::Line> lines;
    const int maxLines;
    // Level-5 lines ever appended; it never goes down, not even when such a line is evicted.
    int severeCount = 0;

    // Returns false when the record is not kept.
    bool append(const QString& message, int level);
    void evict();
};

bool UpdaterLogCollectorPrivate::append(const QString& message, int level)
{
    QMutexLocker locker(&mutex);
    if (severeCount >= maxLines) {
        // From here on only severe lines are kept, and the list grows without eviction.
        if (level <= LastOrdinaryLevel)
            return false;
    } else if (lines.size() > std::size_t(maxLines)) {
        evict();
    }
    lines.push_back(UpdaterLogCollector::Line{level, message});
    if (level == SevereLevel)
        ++severeCount;
    return true;
}

void UpdaterLogCollectorPrivate::evict()
{
    // Deliberately aggressive: every ordinary line is removed until a severe line is met where
    // fewer than half of maxLines remain; severe lines passed before that point stay.
    std::size_t size = lines.size();
    const std::size_t half = std::size_t(maxLines / 2);
    auto it = lines.begin();
    while (it != lines.end()) {
        if (it->level <= LastOrdinaryLevel) {
            it = lines.erase(it);
            --size;
        } else if (size < half) {
            break;
        } else {
            ++it;
        }
    }
}

UpdaterLogCollector::UpdaterLogCollector(int maxLines)
    : QObject(nullptr), d(std::make_unique<UpdaterLogCollectorPrivate>(maxLines))
{
}

UpdaterLogCollector::~UpdaterLogCollector() = default;

std::list<UpdaterLogCollector::Line> UpdaterLogCollector::lines() const
{
    QMutexLocker locker(&d->mutex);
    return d->lines;
}

void UpdaterLogCollector::writeLogHeader()
{
}

void UpdaterLogCollector::write(const QString& message, const QString& /*file*/,
                                const QString& /*function*/, const QString& /*threadName*/,
                                int /*line*/, tvl::Logger::Level level,
                                const QDateTime& /*time*/, int /*threadId*/)
{
    // Emitted outside the lock: a receiver connected directly may call lines().
    if (d->append(message, int(level)))
        emit newLog(int(level), message);
}

} // namespace tvl::updater
