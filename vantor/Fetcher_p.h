#pragma once

#include <vantor/Options.h>
#include <vantor/VantorTypes.h>

#include <QtCore/QByteArray>
#include <QtCore/QElapsedTimer>
#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QMutex>
#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtCore/QTimer>
#include <QtCore/QUrl>
#include <QtCore/QWaitCondition>

#include <atomic>
#include <deque>
#include <memory>

QT_BEGIN_NAMESPACE
class QNetworkReply;
QT_END_NAMESPACE

namespace tvl::vantor {

class Transport;

/// One file to fetch from the repository.
struct FetchItem
{
    int id = 0;
    QString path;          ///< relative to the repository's base URL
    qint64 maxBytes = 0;   ///< a larger answer is refused
};

struct FetchOutcome
{
    /// A transfer's end, or the worker's verdict on what it delivered.
    enum Kind { Fetched, Accepted, Rejected };
    Kind kind = Fetched;
    int id = 0;
    QByteArray body;
    ErrorCode error = ErrorCode::NoError;
    QString message;
};

/**
 * What an operation's worker and its caller's thread share: cancellation, progress counters
 * and the queue of finished transfers.
 */
struct JobContext
{
    std::atomic<bool> cancelled{false};
    std::atomic<int> stage{Progress::Idle};
    std::atomic<qint64> bytesDone{0};
    std::atomic<qint64> bytesTotal{0};
    std::atomic<int> filesDone{0};
    std::atomic<int> filesTotal{0};
    std::atomic<qint64> bytesDownloaded{0};
    /// Fetched bytes that the worker has not consumed yet: transfers wait while it is high.
    std::atomic<qint64> backlog{0};
    /// Set by the fetcher while transfers wait for the backlog to go down.
    std::atomic<bool> backlogFull{false};

    QElapsedTimer stageClock;   ///< since the stage began, for the log

    QMutex mutex;
    QWaitCondition wake;
    std::deque<FetchOutcome> outcomes;

    void deliver(FetchOutcome outcome);
    /// The worker consumed `bytes` of fetched data; wakes the fetcher if it waits for that.
    void releaseBacklog(qint64 bytes, class Fetcher* fetcher);
    void cancel();
    /// Waits for the next finished transfer; false once cancelled.
    bool next(FetchOutcome* outcome);
    void setStage(Progress::Stage value, qint64 total = 0, int files = 0);
};

/**
 * Runs transfers on the thread of the transport, a few at a time, within a rate limit, with
 * retries (Retry-After honoured, a range request for what a cut connection left out), and hands
 * each finished body to the JobContext.
 */
class Fetcher : public QObject
{
    Q_OBJECT

public:
    static constexpr qint64 BacklogLimit = 32 * 1024 * 1024;
    /// Transfers in flight per connection asked for, once the server speaks HTTP/2.
    static constexpr int Http2StreamsPerConnection = 4;

    Fetcher(Transport* transport, const Options& options, std::shared_ptr<JobContext> context,
            QObject* parent = nullptr);
    ~Fetcher() override;

    /// Thread-safe: queues the items on the fetcher's thread.
    void enqueue(const QList<FetchItem>& items);
    /// Thread-safe: lets waiting transfers start once the backlog went down.
    void poke();
    /// Thread-safe: drops every transfer (the operation failed).
    void stop();
    void abortAll();

private:
    struct Transfer
    {
        FetchItem item;
        QByteArray body;       ///< what earlier attempts received
        QByteArray incoming;   ///< what this attempt received so far
        int attempt = 0;
        qint64 unread = 0;     ///< of this attempt, counted but still in the reply
        QPointer<QNetworkReply> reply;
    };

    void add(const QList<FetchItem>& items);
    void pump();
    void begin(Transfer* transfer);
    void readFrom(Transfer* transfer, bool finished);
    void onFinished(Transfer* transfer);
    void fail(Transfer* transfer, ErrorCode code, const QString& message);
    void refill();
    int inFlightLimit() const;
    /// Why `reply` (of `url`) failed on the way, and what to do.
    QString networkFailure(const QString& url, QNetworkReply* reply) const;
    /// Where a cancelled transfer of `item` keeps what it received; empty without an install directory.
    QString partialPath(const FetchItem& item) const;
    void keepPartial(Transfer* transfer);
    /// What an earlier, cancelled transfer of `item` kept (and forgets it).
    QByteArray takePartial(const FetchItem& item);

    Transport* m_transport;
    Options m_options;
    std::shared_ptr<JobContext> m_context;
    std::deque<FetchItem> m_waiting;
    QHash<QNetworkReply*, Transfer*> m_active;
    int m_running = 0;        ///< transfers under way or waiting to retry
    QTimer m_rateTimer;
    QElapsedTimer m_rateClock;
    bool m_http2Seen = false;  ///< a reply came over HTTP/2
    bool m_partialsLooked = false;
    bool m_partialsExist = false;
    qint64 m_budget = 0;      ///< bytes that may still be read under the rate limit; below 0 when overdrawn
};

} // namespace tvl::vantor
