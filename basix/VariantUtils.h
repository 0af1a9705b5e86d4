#pragma once

#include <basix/BasixExport.h>

#include <QtCore/QVariant>

namespace tvl {

/**
 * Whether a value counts as absent: an invalid QVariant, or one holding a null value of a type
 * that has one (a null QString, QByteArray, QUrl, QDate, QTime, QDateTime, pointer...). Qt 6's
 * QVariant::isNull() answers false for a null string inside a valid variant; settings lookups
 * need the older answer, where a null string is as good as nothing and an empty one is a value.
 */
BASIX_EXPORT bool isNull(const QVariant& value);

} // namespace tvl
