#include "TransferScheduler.h"

#include "ManagedReply.h"

#include <algorithm>

namespace {

// Tokens are handed out this often; a transfer waits at most this long for its share.
constexpr int RefillIntervalMs = 20;
// The bucket holds at most this much of a second's rate, so that a pause is not followed by a
// burst far above the limit.
constexpr double BurstSeconds = 0.1;
constexpr double MinimumBurst = 16 * 1024;

} // namespace

TransferScheduler::TransferScheduler(QObject* parent)
    : QObject(parent)
{
    m_refill.setInterval(RefillIntervalMs);
    connect(&m_refill, &QTimer::timeout, this, &TransferScheduler::refill);
}

void TransferScheduler::setMaxConnections(int connections)
{
    m_maxConnections = qMax(1, connections);
    startWaiting();
}

void TransferScheduler::setRateLimit(qint64 bytesPerSecond)
{
    m_rateLimit = qMax<qint64>(0, bytesPerSecond);
    m_tokens = 0;
    m_clock.restart();
    if (m_rateLimit == 0) {
        m_refill.stop();
        // Whatever waited for tokens is taken at once now.
        for (const QPointer<ManagedReply>& reply : std::as_const(m_running)) {
            if (reply)
                reply->pull(-1);
        }
    } else if (!m_running.isEmpty()) {
        m_refill.start();
    }
}

void TransferScheduler::enqueue(ManagedReply* reply)
{
    m_waiting.append(reply);
    startWaiting();
}

void TransferScheduler::release(ManagedReply* reply)
{
    m_waiting.removeAll(reply);
    if (m_running.removeAll(reply) > 0)
        startWaiting();
    m_running.removeAll(nullptr);
    if (m_running.isEmpty())
        m_refill.stop();
}

void TransferScheduler::startWaiting()
{
    m_waiting.removeAll(nullptr);
    m_running.removeAll(nullptr);
    while (!m_waiting.isEmpty() && m_running.size() < m_maxConnections) {
        const QPointer<ManagedReply> reply = m_waiting.takeFirst();
        m_running.append(reply);
        reply->startTransfer();
    }
    if (m_rateLimit > 0 && !m_running.isEmpty() && !m_refill.isActive()) {
        m_clock.restart();
        m_refill.start();
    }
}

void TransferScheduler::refill()
{
    const double elapsed = double(m_clock.restart()) / 1000.0;
    const double burst = std::max(MinimumBurst, double(m_rateLimit) * BurstSeconds);
    m_tokens = std::min(burst, m_tokens + double(m_rateLimit) * elapsed);

    // A copy: a transfer that completes while it pulls leaves the list.
    const QList<QPointer<ManagedReply>> running = m_running;
    const qsizetype count = running.size();
    if (count == 0)
        return;
    const qsizetype first = m_nextFirst % count;
    m_nextFirst = int((first + 1) % count);
    for (qsizetype i = 0; i < count && m_tokens >= 1; ++i) {
        const QPointer<ManagedReply>& reply = running.at((first + i) % count);
        if (!reply)
            continue;
        const qint64 share = qint64(m_tokens / double(count - i));
        m_tokens -= double(reply->pull(qMax<qint64>(1, share)));
    }
}
