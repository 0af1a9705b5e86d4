#include "DottedMap_p.h"

namespace tvl {

namespace {

bool isMap(const QVariant& node)
{
    return node.typeId() == QMetaType::QVariantMap;
}

// A key for QMap lookups that points into the component instead of copying it.
QString keyOf(QStringView component)
{
    return QString::fromRawData(component.data(), component.size());
}

// The map inside `node`, changed in place: data() detaches the variant (and writing through the
// pointer detaches the map) only when they are shared.
QVariantMap* mapIn(QVariant& node)
{
    return static_cast<QVariantMap*>(node.data());
}

// Returns whether `map` is left empty.
bool removeBelow(QVariantMap& map, const DottedPath& path, qsizetype index)
{
    const QString key = keyOf(path.at(index));
    if (index == path.size() - 1) {
        map.remove(key);
        return map.isEmpty();
    }
    const auto found = map.find(key);
    if (found == map.end())
        return map.isEmpty();
    if (!isMap(found.value()) || removeBelow(*mapIn(found.value()), path, index + 1))
        map.erase(found);
    return map.isEmpty();
}

} // namespace

DottedPath dottedPath(QStringView key)
{
    DottedPath path;
    qsizetype start = 0;
    for (;;) {
        const qsizetype end = key.indexOf(u'.', start);
        path.append(key.mid(start, (end < 0 ? key.size() : end) - start));
        if (end < 0)
            return path;
        start = end + 1;
    }
}

DottedPath dottedPath(const QStringList& components)
{
    DottedPath path;
    path.reserve(components.size());
    for (const QString& component : components)
        path.append(component);
    return path;
}

const QVariant* findDotted(const QVariantMap& map, const DottedPath& path, DottedListIndex lists)
{
    const qsizetype last = path.size() - 1;
    // Points into `map` and the maps nested in it, which nothing changes during the walk.
    const QVariantMap* current = &map;
    for (qsizetype i = 0; i <= last; ++i) {
        const auto found = current->constFind(keyOf(path.at(i)));
        if (found == current->constEnd())
            return nullptr;
        const QVariant& node = found.value();
        if (i == last)
            return &node;
        if (isMap(node)) {
            current = static_cast<const QVariantMap*>(node.constData());
            continue;
        }
        if (lists != DottedListIndex::LastComponent || i + 1 != last
            || node.typeId() != QMetaType::QVariantList) {
            return nullptr;
        }
        const auto* list = static_cast<const QVariantList*>(node.constData());
        bool isNumber = false;
        const qlonglong index = path.at(i + 1).toLongLong(&isNumber, 10);
        if (isNumber && index >= 0 && index < list->size())
            return &list->at(index);
        // Not an index of the list: the last component names an entry beside the list.
    }
    return nullptr;
}

void insertDotted(QVariantMap& map, const DottedPath& path, const QVariant& value)
{
    QVariantMap* current = &map;
    for (qsizetype i = 0; i < path.size(); ++i) {
        const QString key = keyOf(path.at(i));
        if (i == path.size() - 1) {
            current->insert(QString(key.constData(), key.size()), value);
            return;
        }
        auto found = current->find(key);
        if (found == current->end() || !isMap(found.value()))
            found = current->insert(QString(key.constData(), key.size()), QVariantMap());
        current = mapIn(found.value());
    }
}

void removeDotted(QVariantMap& map, const DottedPath& path)
{
    if (!path.isEmpty())
        removeBelow(map, path, 0);
}

void dottedLeafPaths(const QVariantMap& map, const QString& prefix, QStringList* keys,
                     DottedEmptyPath empty)
{
    for (auto entry = map.cbegin(); entry != map.cend(); ++entry) {
        const QString path = prefix.isEmpty() ? entry.key() : prefix + u'.' + entry.key();
        if (isMap(entry.value()))
            dottedLeafPaths(*static_cast<const QVariantMap*>(entry.value().constData()), path, keys, empty);
        else if (!path.isEmpty() || empty == DottedEmptyPath::Listed)
            keys->append(path);
    }
}

QVariantMap mergeDotted(QVariantMap base, const QVariantMap& overlay)
{
    for (auto it = overlay.cbegin(); it != overlay.cend(); ++it) {
        const auto existing = base.constFind(it.key());
        if (existing != base.cend() && isMap(*existing) && isMap(*it))
            base.insert(it.key(), mergeDotted(existing->toMap(), it->toMap()));
        else
            base.insert(it.key(), *it);
    }
    return base;
}

} // namespace tvl
