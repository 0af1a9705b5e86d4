#include "ISettingsManager.h"

namespace tvl::updater {

ISettingsManager::ISettingsManager(QObject* parent)
    : QObject(parent)
{
}

ISettingsManager::~ISettingsManager() = default;

QStringList setting_to_string_list(const QVariant& value)
{
    if (value.typeId() != QMetaType::QString)
        return value.toStringList();
    QStringList items;
    for (const QString& item : value.toString().split(QLatin1Char(','))) {
        const QString trimmed = item.trimmed();
        if (!trimmed.isEmpty())
            items.append(trimmed);
    }
    return items;
}

} // namespace tvl::updater
