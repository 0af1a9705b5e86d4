#include "NetworkManager.h"

#include "FileSink.h"
#include "TransferScheduler.h"

#include <libupdater/Updater.h>

#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QNetworkInformation>

NetworkManager::NetworkManager(QObject* parent)
    : INetworkManager(parent)
    , m_access(new QNetworkAccessManager(this))
    , m_scheduler(new TransferScheduler(this))
    , m_userAgent(QStringLiteral("updater/%1").arg(QLatin1String(tvl::updater::UPDATER_VERSION)))
{
    m_writer.setObjectName(QStringLiteral("downloads"));
    m_writer.start(QThread::LowPriority);
}

NetworkManager::~NetworkManager()
{
    abortAll();
    // Replies the caller has not deleted yet hand their file writers to the writer thread for deletion:
    // that has to happen while the thread still runs, so they go before it stops, not with the children.
    const QList<QPointer<ManagedReply>> replies = m_replies;
    for (const QPointer<ManagedReply>& reply : replies)
        delete reply.data();
    // Writers still queued on the thread finish their work before it ends.
    m_writer.quit();
    m_writer.wait();
}

QNetworkAccessManager* NetworkManager::networkAccessManager() const
{
    return m_access;
}

QNetworkRequest NetworkManager::prepared(const QNetworkRequest& request) const
{
    QNetworkRequest result = request;
    if (!result.header(QNetworkRequest::UserAgentHeader).isValid())
        result.setHeader(QNetworkRequest::UserAgentHeader, m_userAgent);
    return result;
}

ManagedReply* NetworkManager::track(ManagedReply* reply)
{
    m_replies.removeAll(nullptr);
    m_replies.append(reply);
    return reply;
}

QNetworkReply* NetworkManager::get(const QNetworkRequest& request)
{
    return track(new ManagedReply(m_access, m_scheduler, m_settings, QNetworkAccessManager::GetOperation, prepared(request)));
}

QNetworkReply* NetworkManager::post(const QNetworkRequest& request, const QByteArray& data)
{
    return track(new ManagedReply(m_access, m_scheduler, m_settings, QNetworkAccessManager::PostOperation,
                                  prepared(request), data));
}

QNetworkReply* NetworkManager::head(const QNetworkRequest& request)
{
    return track(new ManagedReply(m_access, m_scheduler, m_settings, QNetworkAccessManager::HeadOperation, prepared(request)));
}

QNetworkReply* NetworkManager::download(const QUrl& url, const QString& filePath)
{
    auto* sink = new FileSink(filePath, url);
    sink->moveToThread(&m_writer);
    return track(new ManagedReply(m_access, m_scheduler, m_settings, QNetworkAccessManager::GetOperation,
                                  prepared(QNetworkRequest(url)), QByteArray(), filePath, sink));
}

QNetworkProxy NetworkManager::proxy() const
{
    return m_access->proxy();
}

void NetworkManager::setProxy(const QNetworkProxy& proxy)
{
    m_access->setProxy(proxy);
}

QString NetworkManager::userAgent() const
{
    return m_userAgent;
}

void NetworkManager::setUserAgent(const QString& userAgent)
{
    m_userAgent = userAgent;
}

bool NetworkManager::isOnline() const
{
    // Without a backend that knows (no network service on the machine), trying is the answer.
    if (!QNetworkInformation::instance() && !QNetworkInformation::loadBackendByFeatures(QNetworkInformation::Feature::Reachability))
        return true;
    return QNetworkInformation::instance()->reachability() != QNetworkInformation::Reachability::Disconnected;
}

void NetworkManager::abortAll()
{
    const QList<QPointer<ManagedReply>> replies = m_replies;
    for (const QPointer<ManagedReply>& reply : replies) {
        if (reply && !reply->isFinished())
            reply->abort();
    }
}

void NetworkManager::setMaxConnections(int connections)
{
    m_scheduler->setMaxConnections(connections);
}

int NetworkManager::maxConnections() const
{
    return m_scheduler->maxConnections();
}

void NetworkManager::setRateLimit(qint64 bytesPerSecond)
{
    m_scheduler->setRateLimit(bytesPerSecond);
}

qint64 NetworkManager::rateLimit() const
{
    return m_scheduler->rateLimit();
}

void NetworkManager::setTimeout(int milliseconds)
{
    m_settings.timeoutMs = qMax(1, milliseconds);
}

void NetworkManager::setRetryPauses(int firstMs, int maximumMs)
{
    m_settings.firstPauseMs = qMax(0, firstMs);
    m_settings.maximumPauseMs = qMax(m_settings.firstPauseMs, maximumMs);
}
