#include "MemorySettingsProvider.h"

#include <basix/DottedMap_p.h>

namespace tvl::updater {

QVariant value(const QStringList& path, const QVariantMap& map, const QVariant& defaultValue)
{
    const QVariant* found = findDotted(map, dottedPath(path), DottedListIndex::LastComponent);
    return found ? *found : defaultValue;
}

bool set_value(const QString& key, const QVariant& value, QVariantMap& map)
{
    insertDotted(map, dottedPath(key), value);
    return true;
}

bool set_value(QStringList& path, const QVariant& value, QVariantMap& map)
{
    insertDotted(map, dottedPath(path), value);
    path.clear();
    return true;
}

void expand_map(QStringList& keys, const QString& prefix, const QVariant& value)
{
    if (value.typeId() == QMetaType::QVariantMap)
        dottedLeafPaths(*static_cast<const QVariantMap*>(value.constData()), prefix, &keys, DottedEmptyPath::Skipped);
    else if (!prefix.isEmpty())
        keys.append(prefix);
}

MemorySettingsProvider::MemorySettingsProvider(QObject* parent,
                                               ISettingsProvider::SettingsProviderType type)
    : ISettingsProvider(type, parent)
{
}

MemorySettingsProvider::~MemorySettingsProvider() = default;

QVariant MemorySettingsProvider::getSetting(const QString& key) const
{
    const QVariant* found = findDotted(m_settings, dottedPath(key), DottedListIndex::LastComponent);
    return found ? *found : QVariant();
}

void MemorySettingsProvider::setSetting(const QString& key, const QVariant& value)
{
    set_value(key, value, m_settings);
}

QStringList MemorySettingsProvider::keys() const
{
    QStringList result;
    expand_map(result, QString(), QVariant(m_settings));
    return result;
}

} // namespace tvl::updater
