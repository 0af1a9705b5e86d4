#pragma once

#include <libupdater/LibupdaterExport.h>

#include <QtCore/QFlags>
#include <QtCore/QMetaType>

namespace tvl::updater {

/**
 * How a setting is read or written. The scope bits choose the settings layers to consult and
 * have the values of the provider types they select; the rest change what the settings manager
 * or the plugin API does with the value.
 */
enum SettingsAttribute {
    /// The value must be a URL that passes the trusted-URL check, otherwise nothing is found.
    TrustedUrlOnly = 0x1,

    RuntimeScope = 0x10,
    PersistentScope = 0x20,
    IciScope = 0x40,
    CommandlineScope = 0x80,
    /// Every layer: the usual mask.
    AllScopes = RuntimeScope | PersistentScope | IciScope | CommandlineScope,

    /// Read from and write to the system-settings object instead of the settings manager.
    SystemSetting = 0x1000,
    /// Also write the persistent layer.
    PersistSetting = 0x2000,
    /// Write without announcing the change.
    SilentSetting = 0x4000,
    /// Look the key up for the current language first.
    TranslatedSetting = 0x10000,
    /// Return the value as an icon.
    IconSetting = 0x20000
};

Q_DECLARE_FLAGS(SettingsAttributes, SettingsAttribute)
Q_DECLARE_OPERATORS_FOR_FLAGS(SettingsAttributes)

/// Registers SettingsAttributes with the meta-type system under
/// "tvl::updater::SettingsAttributes". Cheap after the first call; returns the id.
LIBUPDATER_EXPORT int registerSettingsAttributesMetaType();

} // namespace tvl::updater

Q_DECLARE_METATYPE(tvl::updater::SettingsAttributes)
