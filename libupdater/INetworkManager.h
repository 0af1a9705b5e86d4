#pragma once

#include <libupdater/LibupdaterExport.h>

#include <QtCore/QByteArray>
#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QUrl>
#include <QtNetwork/QNetworkProxy>
#include <QtNetwork/QNetworkRequest>

QT_BEGIN_NAMESPACE
class QNetworkAccessManager;
class QNetworkReply;
QT_END_NAMESPACE

namespace tvl::updater {

/**
 * Network access offered by one plugin to the others, so that every request of the launcher
 * shares one proxy, one user agent and one connection pool.
 *
 * Requests return the reply at once; it belongs to the caller, who deletes it (deleteLater())
 * once it has finished. Replies are never null.
 */
class LIBUPDATER_EXPORT INetworkManager : public QObject
{
    Q_OBJECT

public:
    explicit INetworkManager(QObject* parent = nullptr);
    ~INetworkManager() override;

    /**
     * The access manager behind every request, for what the other operations do not cover. A
     * request made on it directly shares the proxy and the connection pool, but is outside the
     * implementation's connection count, rate limit and retries.
     */
    virtual QNetworkAccessManager* networkAccessManager() const = 0;

    virtual QNetworkReply* get(const QNetworkRequest& request) = 0;
    virtual QNetworkReply* post(const QNetworkRequest& request, const QByteArray& data) = 0;
    virtual QNetworkReply* head(const QNetworkRequest& request) = 0;
    /**
     * Fetches `url` into the file `filePath`; the reply finishes once the file is complete, or
     * with an error. The data go into a part file next to `filePath` until complete, and a later
     * download of the same address into the same file may resume it; an implementation says how.
     */
    virtual QNetworkReply* download(const QUrl& url, const QString& filePath) = 0;

    virtual QNetworkProxy proxy() const = 0;
    virtual void setProxy(const QNetworkProxy& proxy) = 0;

    /// The User-Agent header given to every request that does not set its own.
    virtual QString userAgent() const = 0;
    virtual void setUserAgent(const QString& userAgent) = 0;

    /// Whether the system has a usable network connection.
    virtual bool isOnline() const = 0;
    /// Aborts every request still running.
    virtual void abortAll() = 0;
};

} // namespace tvl::updater
