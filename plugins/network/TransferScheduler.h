#pragma once

#include <QtCore/QElapsedTimer>
#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtCore/QTimer>

class ManagedReply;

/**
 * Shares the network among the transfers of one network manager: at most maxConnections() of
 * them run at once (the others wait, first come first served), and together they receive at
 * most rateLimit() bytes a second. The rate is kept with a token bucket refilled on a timer;
 * each running transfer pulls what its share allows, and what it does not pull stays in the
 * socket, so the server is slowed down by TCP itself.
 */
class TransferScheduler : public QObject
{
    Q_OBJECT

public:
    explicit TransferScheduler(QObject* parent = nullptr);

    int maxConnections() const { return m_maxConnections; }
    /// At least 1.
    void setMaxConnections(int connections);
    /// Bytes per second for all transfers together; 0 for no limit.
    qint64 rateLimit() const { return m_rateLimit; }
    void setRateLimit(qint64 bytesPerSecond);

    /// Starts `reply` now or as soon as a connection is free.
    void enqueue(ManagedReply* reply);
    /// `reply` no longer needs its connection (finished, aborted, or waiting before a retry).
    void release(ManagedReply* reply);
    int running() const { return int(m_running.size()); }
    int waiting() const { return int(m_waiting.size()); }

private:
    void startWaiting();
    void refill();

    int m_maxConnections = 4;
    qint64 m_rateLimit = 0;
    double m_tokens = 0;
    QElapsedTimer m_clock;
    int m_nextFirst = 0; // who is served first at the next refill, in turn
    QTimer m_refill;
    QList<QPointer<ManagedReply>> m_running;
    QList<QPointer<ManagedReply>> m_waiting;
};
