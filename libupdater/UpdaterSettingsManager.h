#pragma once

#include <libupdater/ISettingsManager.h>
#include <libupdater/ISettingsProvider.h>
#include <libupdater/LibupdaterExport.h>

#include <QtCore/QList>
#include <QtCore/QUrl>

namespace tvl::updater {

/**
 * Whether `url` may be followed when a setting demands a trusted address: true when its host
 * is a sub-domain of the public or the internal domain chosen at build time, and also when it
 * has no host at all (a local path, a file address, a relative address, or text that does not
 * parse as an address with a host). Only the host is looked at, case-sensitively; QUrl already
 * gives it in lower case. A rejection is logged as an error with the whole address.
 */
LIBUPDATER_EXPORT bool check_url_is_trusted(const QUrl& url);

/**
 * The settings store of the launcher: a stack of providers consulted in a fixed order of
 * their types, whatever the order they were added in: the runtime provider first, then the
 * command line, the persistent file and last the configuration script.
 *
 * The manager borrows its providers: it never deletes one, and one that is destroyed drops out
 * of the stack. Of several providers of one type, only the first added is consulted or
 * written. Writes go to the runtime provider (and the persistent one on request); changes
 * that providers report by themselves are passed on as settingChanged() when the rest of the
 * stack does not already give the new value. Nothing is cached.
 */
class LIBUPDATER_EXPORT UpdaterSettingsManager : public ISettingsManager
{
    Q_OBJECT

public:
    explicit UpdaterSettingsManager(QObject* parent = nullptr);
    ~UpdaterSettingsManager() override;

    /**
     * The first non-null value of `key` among the providers selected by the scope bits of
     * `attributes`, or an invalid QVariant. With TrustedUrlOnly, a value that is not a URL or
     * whose host fails check_url_is_trusted() yields an invalid QVariant instead.
     */
    QVariant getSetting(const QString& key, SettingsAttributes attributes) const override;
    /**
     * Writes `value` to the runtime provider, and to the persistent one when `persist` is
     * true, then tells every provider through update(). settingChanged() follows when
     * `notify` is true and `value` differs from what getSetting() gave before the write.
     * An invalid `value` does not delete the key: it is stored and then reads as absent.
     */
    void setSetting(const QString& key, const QVariant& value, bool persist, bool notify) override;
    void save() override;
    /// The keys of the selected providers in consultation order, each exact string once.
    QStringList keys(SettingsAttributes attributes) const override;
    void clear() override;

    /// Adds `provider` unless it is null or there already. The manager does not own it.
    void addProvider(ISettingsProvider* provider);
    /**
     * Stops consulting `provider` and cuts the manager's own connections to it. Its change
     * reports still reach onProviderChanged(): a provider that goes on reporting after its
     * removal is still heard.
     */
    void removeProvider(ISettingsProvider* provider);
    /// The first provider added with the type `type`, or null.
    ISettingsProvider* providerByType(ISettingsProvider::SettingsProviderType type) const;

public Q_SLOTS:
    /**
     * A provider (the sender) changed `key` by itself. The change is announced with
     * settingChanged(key, newValue) unless the other providers already give `newValue`, or
     * give nothing while the value did not really change.
     */
    void onProviderChanged(const QString& key, const QVariant& previousValue,
                           const QVariant& newValue);

private:
    Q_DISABLE_COPY(UpdaterSettingsManager)

    QList<ISettingsProvider*> m_providers;
};

} // namespace tvl::updater
