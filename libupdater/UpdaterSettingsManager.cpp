#include "UpdaterSettingsManager.h"

#include <basix/Logger.h>
#include <basix/VariantUtils.h>

#include <QtCore/QRegularExpression>

namespace tvl::updater {

namespace {

// Both getSetting() and keys() walk the layers in this order; the scope bits have the values
// of the provider types they select.
constexpr SettingsAttribute ConsultationOrder[] = {RuntimeScope, CommandlineScope, PersistentScope,
                                                   IciScope};

QRegularExpression hostPattern(const QString& pattern)
{
    QRegularExpression expression(QRegularExpression::anchoredPattern(pattern),
                                  QRegularExpression::DotMatchesEverythingOption);
    // Compiled here, once, so that concurrent callers only ever read the expression.
    expression.optimize();
    return expression;
}

// Tried in order. The empty pattern, which matches only an empty host, comes last: addresses
// without a host are trusted.
const QList<QRegularExpression>& trustedHostPatterns()
{
    static const QList<QRegularExpression> patterns = [] {
        QList<QRegularExpression> list;
        for (const char* domain : {UPDATER_PUBLIC_DOMAIN, UPDATER_INTERNAL_DOMAIN}) {
            // Any sub-domain: the dot before the domain keeps the bare domain name out.
            list.append(hostPattern(QStringLiteral(".*\\.")
                                    + QRegularExpression::escape(QString::fromUtf8(domain))));
        }
        list.append(hostPattern(QString()));
        return list;
    }();
    return patterns;
}

} // namespace

bool check_url_is_trusted(const QUrl& url)
{
    const QString host = url.host();
    // "https:evil.example/x" and "https:///evil.example/x" have no host for QUrl, but browsers
    // and the desktop open them on evil.example: a network address without a host is no local one.
    static const QStringList NetworkSchemes = {QStringLiteral("http"), QStringLiteral("https"),
                                               QStringLiteral("ftp"), QStringLiteral("ws"), QStringLiteral("wss")};
    const bool hostlessNetworkAddress = host.isEmpty() && NetworkSchemes.contains(url.scheme().toLower());
    for (const QRegularExpression& pattern : trustedHostPatterns()) {
        if (!hostlessNetworkAddress && pattern.match(host).hasMatch())
            return true;
    }
    TVL_LOG(tvl::Logger::Error) << QStringLiteral("Unauthorized url ") + url.toString();
    return false;
}

UpdaterSettingsManager::UpdaterSettingsManager(QObject* parent)
    : ISettingsManager(parent)
{
    // Plugins pass attributes to the manager through slots called by name and queued
    // connections, which need the type registered under its full name.
    registerSettingsAttributesMetaType();
}

UpdaterSettingsManager::~UpdaterSettingsManager() = default;

QVariant UpdaterSettingsManager::getSetting(const QString& key, SettingsAttributes attributes) const
{
    QVariant result;
    for (const SettingsAttribute scope : ConsultationOrder) {
        if (!attributes.testFlag(scope))
            continue;
        const ISettingsProvider* provider =
            providerByType(static_cast<ISettingsProvider::SettingsProviderType>(scope));
        if (!provider)
            continue;
        result = provider->getSetting(key);
        if (!tvl::isNull(result))
            break;
    }

    if (!tvl::isNull(result) && attributes.testFlag(TrustedUrlOnly)) {
        if (!result.canConvert<QUrl>())
            return QVariant();
        if (!check_url_is_trusted(result.toUrl()))
            return QVariant();
    }
    return result;
}

void UpdaterSettingsManager::setSetting(const QString& key, const QVariant& value, bool persist,
                                        bool notify)
{
    const QVariant previousValue = getSetting(key, AllScopes);

    if (ISettingsProvider* runtime = providerByType(ISettingsProvider::RuntimeProvider))
        runtime->setSetting(key, value);
    if (persist) {
        if (ISettingsProvider* persistent = providerByType(ISettingsProvider::PersistentProvider))
            persistent->setSetting(key, value);
    }

    // A provider may add or remove providers from within update() (the script provider
    // re-evaluates its script there); the copy keeps this loop on the list it started with.
    const QList<ISettingsProvider*> providers = m_providers;
    for (ISettingsProvider* provider : providers)
        provider->update(key, value);

    if (notify && value != previousValue)
        Q_EMIT settingChanged(key, value);
}

void UpdaterSettingsManager::save()
{
    const QList<ISettingsProvider*> providers = m_providers;
    for (ISettingsProvider* provider : providers)
        provider->save();
}

QStringList UpdaterSettingsManager::keys(SettingsAttributes attributes) const
{
    QStringList result;
    for (const SettingsAttribute scope : ConsultationOrder) {
        if (!attributes.testFlag(scope))
            continue;
        if (const ISettingsProvider* provider =
                providerByType(static_cast<ISettingsProvider::SettingsProviderType>(scope)))
            result.append(provider->keys());
    }
    result.removeDuplicates();
    return result;
}

void UpdaterSettingsManager::clear()
{
    const QList<ISettingsProvider*> providers = m_providers;
    for (ISettingsProvider* provider : providers)
        provider->clear();
}

void UpdaterSettingsManager::addProvider(ISettingsProvider* provider)
{
    if (!provider || m_providers.contains(provider))
        return;
    // Unique: removeProvider() keeps this connection, and a provider added again must not
    // report each change twice.
    connect(provider, &ISettingsProvider::settingChanged, this,
            &UpdaterSettingsManager::onProviderChanged, Qt::UniqueConnection);
    // A provider destroyed without being removed must not stay in the list as a dangling
    // pointer. Only the address is compared: the object is half destroyed by then.
    connect(provider, &QObject::destroyed, this, [this, provider] { m_providers.removeAll(provider); });
    m_providers.append(provider);
}

void UpdaterSettingsManager::removeProvider(ISettingsProvider* provider)
{
    if (!provider)
        return;
    if (m_providers.removeAll(provider) > 0) {
        // Only the manager's connections to the provider go; the provider's reports keep
        // reaching onProviderChanged().
        disconnect(provider);
    }
}

ISettingsProvider*
UpdaterSettingsManager::providerByType(ISettingsProvider::SettingsProviderType type) const
{
    for (ISettingsProvider* provider : m_providers) {
        if (provider->type() == type)
            return provider;
    }
    return nullptr;
}

void UpdaterSettingsManager::onProviderChanged(const QString& key, const QVariant& previousValue,
                                               const QVariant& newValue)
{
    const auto* provider = qobject_cast<const ISettingsProvider*>(sender());
    if (!provider)
        return;

    // What the stack gives without the reporting provider. Whether that value comes from
    // above or below the sender does not matter: a change hidden by a different value above
    // it is reported all the same.
    SettingsAttributes others = AllScopes;
    others.setFlag(static_cast<SettingsAttribute>(provider->type()), false);
    const QVariant current = getSetting(key, others);

    const bool changed = tvl::isNull(current) ? previousValue != newValue : current != newValue;
    if (!changed)
        return;

    TVL_LOG(tvl::Logger::Trace) << "Provider setting changed" << static_cast<int>(provider->type())
                                << key << previousValue << newValue;
    Q_EMIT settingChanged(key, newValue);
}

} // namespace tvl::updater
