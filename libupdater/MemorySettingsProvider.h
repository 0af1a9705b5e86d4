#pragma once

#include <libupdater/ISettingsProvider.h>
#include <libupdater/LibupdaterExport.h>

#include <QtCore/QStringList>
#include <QtCore/QVariant>
#include <QtCore/QVariantMap>

namespace tvl::updater {

/**
 * The value at `path` in a tree of nested QVariantMaps, or `defaultValue`. Each component
 * names an entry of the map reached so far; the last one's value is returned whatever it is
 * (an invalid QVariant included). A list value followed by exactly one more component is
 * indexed by that component when it is a number within the list; otherwise that component is
 * looked up in the map that holds the list (with a = [1, 2] and x = 5 in one map, "a.x"
 * reads 5). An empty path gives `defaultValue`.
 */
LIBUPDATER_EXPORT QVariant value(const QStringList& path, const QVariantMap& map,
                                 const QVariant& defaultValue);

/**
 * Stores `value` at the dotted `key` in `map` (empty components are keys too), creating the
 * maps on the way and replacing any non-map value found on the way by a map. Returns true.
 */
LIBUPDATER_EXPORT bool set_value(const QString& key, const QVariant& value, QVariantMap& map);

/**
 * As above with the key split already. `path` is consumed: its components are taken off as
 * the walk goes down, and it is empty afterwards. Nested maps are modified where they are.
 */
LIBUPDATER_EXPORT bool set_value(QStringList& path, const QVariant& value, QVariantMap& map);

/**
 * Appends to `keys` the dotted paths, below `prefix`, of every leaf of `value`: depth first,
 * each map in key order. Maps themselves are not listed; a leaf with an empty path is not
 * listed either.
 */
LIBUPDATER_EXPORT void expand_map(QStringList& keys, const QString& prefix, const QVariant& value);

/**
 * Settings held in memory as a tree of maps addressed by dotted keys: "display.width" is the
 * entry width of the map under display. Normally the runtime layer of UpdaterSettingsManager.
 * Nothing is ever removed: clear() keeps everything, and writing an invalid QVariant keeps the
 * key with a value that reads as absent. It never reports changes itself.
 */
class LIBUPDATER_EXPORT MemorySettingsProvider : public ISettingsProvider
{
    Q_OBJECT

public:
    explicit MemorySettingsProvider(QObject* parent,
                                    ISettingsProvider::SettingsProviderType type = RuntimeProvider);
    ~MemorySettingsProvider() override;

    QVariant getSetting(const QString& key) const override;
    void setSetting(const QString& key, const QVariant& value) override;
    QStringList keys() const override;

private:
    QVariantMap m_settings;
};

} // namespace tvl::updater
