#include "VariantUtils.h"

#include <QtCore/QDateTime>
#include <QtCore/QJsonValue>
#include <QtCore/QUrl>
#include <QtCore/QUuid>

namespace tvl {

bool isNull(const QVariant& value)
{
    // Qt 6 itself still answers for invalid variants and null pointers.
    if (!value.isValid() || value.isNull())
        return true;

    switch (value.typeId()) {
    case QMetaType::QString:
        return static_cast<const QString*>(value.constData())->isNull();
    case QMetaType::QByteArray:
        return static_cast<const QByteArray*>(value.constData())->isNull();
    case QMetaType::QChar:
        return static_cast<const QChar*>(value.constData())->isNull();
    case QMetaType::QUrl:
        // QUrl has no null state of its own; an empty one is what a default-constructed one is.
        return static_cast<const QUrl*>(value.constData())->isEmpty();
    case QMetaType::QDate:
        return static_cast<const QDate*>(value.constData())->isNull();
    case QMetaType::QTime:
        return static_cast<const QTime*>(value.constData())->isNull();
    case QMetaType::QDateTime:
        return static_cast<const QDateTime*>(value.constData())->isNull();
    case QMetaType::QUuid:
        return static_cast<const QUuid*>(value.constData())->isNull();
    case QMetaType::QJsonValue: {
        const auto* json = static_cast<const QJsonValue*>(value.constData());
        return json->isNull() || json->isUndefined();
    }
    default:
        // Numbers, booleans, containers and geometry have no "absent" value: 0, false, an
        // empty list and a zero size are all values.
        return false;
    }
}

} // namespace tvl
