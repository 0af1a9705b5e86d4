#pragma once

#include <libupdater/ISettingsProvider.h>
#include <libupdater/LibupdaterExport.h>

#include <QtCore/QSettings>

namespace tvl::updater {

/**
 * Settings in an INI file through QSettings, normally the persistent layer of
 * UpdaterSettingsManager. A dotted key maps onto the file's groups ("display.width" is width
 * in [display]); keys() gives them back in QSettings' "/" form, and a key written either way
 * is read. Values come back as the INI format types them: a number written in an earlier run
 * reads as a string. QSettings writes the file itself, so save() does nothing.
 */
class LIBUPDATER_EXPORT IniSettingsProvider : public ISettingsProvider
{
    Q_OBJECT

public:
    /// Works on `settings`, which the caller keeps and must keep alive as long as this.
    IniSettingsProvider(QSettings* settings, ISettingsProvider::SettingsProviderType type,
                        QObject* parent = nullptr);
    /// Works on the INI file at `path`, through a QSettings object of its own.
    IniSettingsProvider(const QString& path, ISettingsProvider::SettingsProviderType type,
                        QObject* parent = nullptr);
    ~IniSettingsProvider() override;

    QVariant getSetting(const QString& key) const override;
    /**
     * Writes `value` under the group form of `key`, after removing an entry named by the
     * dotted `key` itself, so that a value stored under a literal dotted name does not linger
     * beside the new one. An empty key writes nothing.
     */
    void setSetting(const QString& key, const QVariant& value) override;
    QStringList keys() const override;
    /// Removes every entry of the file.
    void clear() override;

private:
    QSettings* const m_settings;
};

} // namespace tvl::updater
