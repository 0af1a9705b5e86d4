#pragma once

// Dotted keys ("display.width") over trees of nested QVariantMaps: the script engine's variables
// and the launcher's memory settings layer both keep their values this way. Only a QVariantMap
// is an inner node; everything else, lists included, is a leaf.

#include <basix/BasixExport.h>

#include <QtCore/QStringList>
#include <QtCore/QStringView>
#include <QtCore/QVarLengthArray>
#include <QtCore/QVariant>

namespace tvl {

/// The components of a dotted key, as views into the key or into the strings of a list.
using DottedPath = QVarLengthArray<QStringView, 8>;

/// Splits `key` at every '.', keeping empty components ("a..b" has three, "" has one).
BASIX_EXPORT DottedPath dottedPath(QStringView key);
/// Views of the strings of `components`, which must outlive the result.
BASIX_EXPORT DottedPath dottedPath(const QStringList& components);

/// What a read does when it meets a list with exactly one component left after it.
enum class DottedListIndex {
    None,   ///< a list is a leaf like any other: the read finds nothing below it
    /// the last component indexes the list when it is a number within it; otherwise the read
    /// skips the list and looks the last component up in the map that holds the list
    LastComponent,
};

/**
 * The node at `path` in `map`, or null when there is none: the last component's value
 * whatever it is, or (with DottedListIndex::LastComponent) an element of a list. The pointer
 * is valid as long as `map` is not changed. An empty path finds nothing.
 */
BASIX_EXPORT const QVariant* findDotted(const QVariantMap& map, const DottedPath& path,
                                        DottedListIndex lists = DottedListIndex::None);

/**
 * Stores `value` at `path` (an invalid value included), creating the maps on the way and
 * replacing any leaf found on the way by a new map. The maps on the way are changed where they
 * are. An empty path changes nothing.
 */
BASIX_EXPORT void insertDotted(QVariantMap& map, const DottedPath& path, const QVariant& value);

/**
 * Removes the entry at `path`, then every map on the way that this left empty. A leaf on the
 * way is removed as well, since nothing can be below it.
 */
BASIX_EXPORT void removeDotted(QVariantMap& map, const DottedPath& path);

/// How dottedLeafPaths() treats a leaf whose path is empty (the entry "" of the top map).
enum class DottedEmptyPath { Listed, Skipped };

/**
 * Appends the dotted paths of every leaf below `map` to `keys`, each prefixed with `prefix`
 * and a '.' unless `prefix` is empty: depth first, each map in key order. Maps themselves are
 * not listed, so an empty map adds nothing.
 */
BASIX_EXPORT void dottedLeafPaths(const QVariantMap& map, const QString& prefix, QStringList* keys,
                                  DottedEmptyPath empty = DottedEmptyPath::Listed);

/// `overlay` laid over `base`: maps present in both are merged the same way, every other entry
/// of `overlay` replaces the one of `base`.
BASIX_EXPORT QVariantMap mergeDotted(QVariantMap base, const QVariantMap& overlay);

} // namespace tvl
