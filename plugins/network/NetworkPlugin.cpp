#include "NetworkPlugin.h"

#include "NetworkManager.h"

#include <basix/Logger.h>

#include <libupdater/ISettingsManager.h>
#include <libupdater/UpdaterPluginApi.h>

#include <QtNetwork/QNetworkProxyFactory>

namespace {

constexpr int DefaultConnections = 4;
constexpr int DefaultTimeoutSeconds = 30;

/// "none", an address such as "http://host:3128" or "socks5://host:1080"; anything else: the system's.
bool proxyFromSetting(const QString& text, QNetworkProxy* proxy)
{
    if (text.compare(QLatin1String("none"), Qt::CaseInsensitive) == 0) {
        *proxy = QNetworkProxy(QNetworkProxy::NoProxy);
        return true;
    }
    const QUrl url(text);
    const QString scheme = url.scheme().toLower();
    if (url.host().isEmpty() || (scheme != QLatin1String("http") && scheme != QLatin1String("socks5")))
        return false;
    *proxy = QNetworkProxy(scheme == QLatin1String("http") ? QNetworkProxy::HttpProxy : QNetworkProxy::Socks5Proxy,
                           url.host(), quint16(url.port(scheme == QLatin1String("http") ? 8080 : 1080)),
                           url.userName(), url.password());
    return true;
}

} // namespace

bool NetworkPlugin::init()
{
    m_manager = new NetworkManager(this);
    m_manager->setObjectName(QStringLiteral("network"));
    applySettings();
    api()->addObject(m_manager);
    return true;
}

void NetworkPlugin::uninit()
{
    if (m_manager)
        m_manager->abortAll();
    UpdaterPlugin::uninit();
}

void NetworkPlugin::objectAdded(QObject* object)
{
    auto* settings = qobject_cast<tvl::updater::ISettingsManager*>(object);
    if (!settings || m_followed.contains(settings))
        return;
    m_followed.append(settings);
    connect(settings, &tvl::updater::ISettingsManager::settingChanged, this, [this](const QString& key) {
        if (key.startsWith(QLatin1String("network.")))
            applySettings();
    });
    applySettings();
}

void NetworkPlugin::applySettings()
{
    if (!m_manager)
        return;
    bool ok = false;
    const int connections = api()->getSetting(QStringLiteral("network.max_connections"), DefaultConnections).toInt(&ok);
    m_manager->setMaxConnections(ok && connections > 0 ? connections : DefaultConnections);
    const qint64 kibPerSecond = api()->getSetting(QStringLiteral("network.rate_limit"), 0).toLongLong(&ok);
    m_manager->setRateLimit(ok && kibPerSecond > 0 ? kibPerSecond * 1024 : 0);
    const int timeout = api()->getSetting(QStringLiteral("network.timeout"), DefaultTimeoutSeconds).toInt(&ok);
    m_manager->setTimeout((ok && timeout > 0 ? timeout : DefaultTimeoutSeconds) * 1000);

    const QString proxyText = api()->getSetting(QStringLiteral("network.proxy"), QString()).toString().trimmed();
    QNetworkProxy proxy(QNetworkProxy::DefaultProxy);
    if (!proxyText.isEmpty() && !proxyFromSetting(proxyText, &proxy))
        TVL_LOG(tvl::Logger::Warning) << "network.proxy: not an address of an http or socks5 proxy:" << proxyText;
    QNetworkProxyFactory::setUseSystemConfiguration(proxy.type() == QNetworkProxy::DefaultProxy);
    m_manager->setProxy(proxy);
}
