#pragma once

#include "ManagedReply.h"

#include <libupdater/INetworkManager.h>

#include <QtCore/QList>
#include <QtCore/QPointer>
#include <QtCore/QThread>

class TransferScheduler;

/**
 * INetworkManager over one QNetworkAccessManager, shared by every plugin: one connection pool,
 * one proxy, one user agent. Every request made through it waits for one of the scheduler's
 * connections and is slowed to the shared rate limit; get(), head() and download() are retried
 * (see ManagedReply). Downloads are written on a thread of their own.
 */
class NetworkManager : public tvl::updater::INetworkManager
{
    Q_OBJECT

public:
    explicit NetworkManager(QObject* parent = nullptr);
    ~NetworkManager() override;

    QNetworkAccessManager* networkAccessManager() const override;
    QNetworkReply* get(const QNetworkRequest& request) override;
    QNetworkReply* post(const QNetworkRequest& request, const QByteArray& data) override;
    QNetworkReply* head(const QNetworkRequest& request) override;
    QNetworkReply* download(const QUrl& url, const QString& filePath) override;
    QNetworkProxy proxy() const override;
    void setProxy(const QNetworkProxy& proxy) override;
    QString userAgent() const override;
    void setUserAgent(const QString& userAgent) override;
    bool isOnline() const override;
    void abortAll() override;

    /// Transfers running at once; at least 1.
    void setMaxConnections(int connections);
    int maxConnections() const;
    /// Bytes per second for all transfers together; 0 for no limit.
    void setRateLimit(qint64 bytesPerSecond);
    qint64 rateLimit() const;
    /// An attempt without a byte for this long fails (and is retried where that is allowed).
    void setTimeout(int milliseconds);
    /// For tests: how long the first pause before a retry lasts (doubled for each further one).
    void setRetryPauses(int firstMs, int maximumMs);

private:
    ManagedReply* track(ManagedReply* reply);
    QNetworkRequest prepared(const QNetworkRequest& request) const;

    QNetworkAccessManager* m_access;
    TransferScheduler* m_scheduler;
    QThread m_writer;
    ManagedReply::Settings m_settings;
    QString m_userAgent;
    QList<QPointer<ManagedReply>> m_replies;
};
