#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QPointer>
#include <QtCore/QTimer>
#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QNetworkReply>
#include <QtNetwork/QNetworkRequest>

class FileSink;
class TransferScheduler;

/**
 * The reply that the network manager hands out: one reply for the whole transfer, whatever
 * happens below it. It waits for a connection of the scheduler, then runs one request after
 * another on the access manager until one succeeds or it gives up:
 *
 * - GET and HEAD (and downloads into a file) are retried on connection errors, time-outs,
 *   429 and 5xx answers, after a growing pause or the pause the server asks for with
 *   Retry-After; POST is sent once.
 * - A retry after some data arrived asks only for the rest (Range, with If-Range and the
 *   first answer's validator), so that the consumer reads every byte once.
 * - Redirects: at most five, never from https to http (Qt's no-less-safe policy).
 * - Data are taken from the access manager's reply as the scheduler's rate allows.
 *
 * A download goes into "<file>.part" next to the file, with the validators in
 * "<file>.part.json", and is renamed to the file once complete; a later download of the same
 * address into the same file resumes the part. Writing happens on the sink's thread.
 */
class ManagedReply : public QNetworkReply
{
    Q_OBJECT

public:
    struct Settings
    {
        int timeoutMs = 30000;          ///< without a byte for this long, an attempt has failed
        int attempts = 6;               ///< for the operations that are retried
        int firstPauseMs = 500;         ///< doubled at each further retry
        int maximumPauseMs = 30000;     ///< also the longest Retry-After honoured
    };

    /// `filePath` non-empty: a download into that file through `sink`.
    ManagedReply(QNetworkAccessManager* access, TransferScheduler* scheduler, const Settings& settings,
                 QNetworkAccessManager::Operation operation, const QNetworkRequest& request,
                 const QByteArray& body = QByteArray(), const QString& filePath = QString(), FileSink* sink = nullptr);
    ~ManagedReply() override;

    void abort() override;
    /// Bounds what the reply holds for its reader (the transfer waits while it is full).
    void setReadBufferSize(qint64 size) override;
    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override;

    /// Called by the scheduler once a connection is free.
    void startTransfer();
    /// Takes at most `maximum` bytes (-1: all) from the current attempt; returns how many.
    qint64 pull(qint64 maximum);

    /// How many attempts were made so far.
    int attempts() const { return m_attempt; }

protected:
    qint64 readData(char* data, qint64 maxSize) override;
    qint64 writeData(const char*, qint64) override { return -1; }

private:
    void startAttempt();
    void onAttemptMetaData();
    void onAttemptReadyRead();
    void onAttemptFinished();
    /// The attempt has finished and everything it held has been taken: success, retry or failure.
    void completeAttempt();
    void onTimeout();
    bool shouldRetry(const QNetworkReply* attempt, QNetworkReply::NetworkError error) const;
    int pauseBeforeRetry(const QNetworkReply* attempt) const;
    void takeMetaData(const QNetworkReply* attempt);
    void finishWith(QNetworkReply::NetworkError error, const QString& text);
    void completeDownload();
    bool rateLimited() const;
    /// What the reader's buffer still has room for; -1 without a bound (or into a file).
    qint64 room() const;
    /// The read buffer of the current attempt: small under a rate limit, else the reader's bound.
    qint64 attemptReadBuffer() const;
    QNetworkRequest attemptRequest() const;
    enum class Resumption { Continue, Restart, Refused };
    /// How the answer to a request for the rest of the resource goes on from what was delivered.
    Resumption resumption(const QNetworkReply* attempt);
    void openSink(qint64 offset);

    QNetworkAccessManager* m_access;
    QPointer<TransferScheduler> m_scheduler;
    Settings m_settings;
    QByteArray m_body;
    QString m_filePath;
    QPointer<FileSink> m_sink;

    QPointer<QNetworkReply> m_current;
    QTimer m_idle;
    QTimer m_pause;
    int m_attempt = 0;
    bool m_timedOut = false;
    bool m_aborted = false;
    bool m_done = false;
    bool m_haveMetaData = false;
    bool m_sinkOpen = false;
    /// The attempt finished, but some of its data still wait for the rate limit.
    bool m_draining = false;
    bool m_pullQueued = false;

    QByteArray m_buffer;
    /// Bytes of the resource handed on (to the buffer or the file), across attempts.
    qint64 m_delivered = 0;
    /// Bytes to drop from the start of the current attempt's body (a server that ignored Range).
    qint64 m_skip = 0;
    /// Where the current attempt's body starts within the resource.
    qint64 m_attemptOffset = 0;
    qint64 m_total = -1;
    QByteArray m_validator;
};
