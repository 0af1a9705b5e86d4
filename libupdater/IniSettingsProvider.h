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
 * reads as a string. Every write is written to the file at once (save() does nothing), and a
 * file that cannot be written is reported in the log, once for each cause.
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
    /// Writes the file now; a write that fails is logged once for each cause in a row.
    void sync();

    QSettings* const m_settings;
    bool m_failed = false; // the settings object reported a failure
    QString m_failure;     // the cause logged last, until it is gone
};

} // namespace tvl::updater
