#pragma once

#include <libupdater/LibupdaterExport.h>

#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QVariant>

namespace tvl::updater {

/**
 * System-wide settings kept outside the launcher's own settings, offered by a plugin. The
 * plugin's object derives from QObject and from this interface, names it in Q_INTERFACES and
 * registers with the plugin API; reads and writes with SystemSetting then go to it.
 */
class LIBUPDATER_EXPORT ISystemSettingsProvider
{
public:
    virtual ~ISystemSettingsProvider();

    /// The value of `key`; an invalid or null QVariant when there is none.
    virtual QVariant value(const QString& key) const = 0;
    virtual void setValue(const QString& key, const QVariant& value) = 0;
};

} // namespace tvl::updater

Q_DECLARE_INTERFACE(tvl::updater::ISystemSettingsProvider, "com.tarvel.updater.ISystemSettingsProvider")
