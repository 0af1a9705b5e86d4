#include "MemorySettingsProvider.h"

namespace tvl::updater {

namespace {

constexpr QChar Separator = u'.';

bool isMap(const QVariant& node)
{
    return node.typeId() == QMetaType::QVariantMap;
}

} // namespace

QVariant value(const QStringList& path, const QVariantMap& map, const QVariant& defaultValue)
{
    const qsizetype last = path.size() - 1;
    // Points into `map` and the maps nested in it, which nothing changes during the walk.
    const QVariantMap* current = &map;
    for (qsizetype i = 0; i <= last; ++i) {
        const auto found = current->constFind(path.at(i));
        if (found == current->constEnd())
            return defaultValue;
        const QVariant& node = found.value();
        if (i == last)
            return node;
        if (isMap(node)) {
            current = static_cast<const QVariantMap*>(node.constData());
            continue;
        }
        if (i + 1 != last || node.typeId() != QMetaType::QVariantList)
            return defaultValue;

        const auto* list = static_cast<const QVariantList*>(node.constData());
        bool isNumber = false;
        const qlonglong index = path.at(i + 1).toLongLong(&isNumber, 10);
        if (isNumber && index >= 0 && index < list->size())
            return list->at(index);
        // Not an index of the list: the last component names an entry beside the list.
    }
    return defaultValue;
}

bool set_value(const QString& key, const QVariant& value, QVariantMap& map)
{
    QStringList path = key.split(Separator);
    return set_value(path, value, map);
}

bool set_value(QStringList& path, const QVariant& value, QVariantMap& map)
{
    if (path.isEmpty())
        return true;
    const QString key = path.takeFirst();
    if (path.isEmpty()) {
        map.insert(key, value);
        return true;
    }

    const auto found = map.find(key);
    if (found != map.end() && isMap(found.value())) {
        // data() detaches the variant (and writing through the pointer detaches the map) only
        // if they are shared, so a deep path costs a lookup per level, not a copy of each map.
        auto* nested = static_cast<QVariantMap*>(found.value().data());
        return set_value(path, value, *nested);
    }

    QVariantMap created;
    set_value(path, value, created);
    map.insert(key, QVariant(std::move(created)));
    return true;
}

void expand_map(QStringList& keys, const QString& prefix, const QVariant& value)
{
    if (isMap(value)) {
        const auto* map = static_cast<const QVariantMap*>(value.constData());
        for (auto entry = map->constBegin(); entry != map->constEnd(); ++entry) {
            const QString childPrefix =
                prefix.isEmpty() ? entry.key() : prefix + Separator + entry.key();
            expand_map(keys, childPrefix, entry.value());
        }
        return;
    }
    if (!prefix.isEmpty())
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
    // Every read of every layer passes here: the components only serve to look the maps up,
    // so they point into `key` instead of being copied out of it as split() would.
    QStringList path;
    path.reserve(key.count(Separator) + 1);
    qsizetype start = 0;
    for (;;) {
        const qsizetype end = key.indexOf(Separator, start);
        path.append(QString::fromRawData(key.constData() + start, (end < 0 ? key.size() : end) - start));
        if (end < 0)
            break;
        start = end + 1;
    }
    return tvl::updater::value(path, m_settings, QVariant());
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
