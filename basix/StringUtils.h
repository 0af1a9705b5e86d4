#pragma once

#include <basix/BasixExport.h>

#include <QtCore/QHash>
#include <QtCore/QString>

namespace tvl {

/**
 * Replaces every "%(key)" in `text` by hash[key], in one pass from left to right: replaced
 * text is not searched again, and a placeholder whose key is not in the hash (or that is not
 * closed) is left as it is. Keys are case-sensitive.
 */
BASIX_EXPORT QString tv_string_replace(const QString& text, const QHash<QString, QString>& hash);

} // namespace tvl
