#pragma once

#include <libupdater/LibupdaterExport.h>

#include <QtCore/QObject>
#include <QtCore/QStringList>
#include <QtCore/QVariant>

namespace tvl::updater {

/**
 * One layer of the settings manager (UpdaterSettingsManager). Its type says which layer it is
 * and is tested against the scope bits of SettingsAttributes, which have the same values.
 * Every operation but keys() has a default that does nothing (getSetting() finds nothing), so a
 * provider overrides what its store supports.
 */
class LIBUPDATER_EXPORT ISettingsProvider : public QObject
{
    Q_OBJECT

public:
    enum SettingsProviderType {
        RuntimeProvider = 0x10,      ///< values set while the program runs; consulted first
        PersistentProvider = 0x20,   ///< values that survive a restart (the user's INI file)
        IciProvider = 0x40,          ///< values computed by the configuration script
        CommandlineProvider = 0x80   ///< options given on the updater's command line
    };
    Q_ENUM(SettingsProviderType)

    ISettingsProvider(SettingsProviderType type, QObject* parent);
    ~ISettingsProvider() override;

    SettingsProviderType type() const;

    /// The value of `key`, or an invalid QVariant.
    virtual QVariant getSetting(const QString& key) const;
    virtual void setSetting(const QString& key, const QVariant& value);
    virtual void save();
    /// A value was set somewhere in the stack (the script provider recomputes from it).
    virtual void update(const QString& key, const QVariant& value);
    virtual QStringList keys() const = 0;
    virtual void clear();

Q_SIGNALS:
    /// A value changed in this layer by itself (a configuration file edited on disk).
    void settingChanged(const QString& key, const QVariant& previousValue, const QVariant& newValue);

private:
    const SettingsProviderType m_type;
};

} // namespace tvl::updater
