#include "ISettingsManager.h"

namespace tvl::updater {

ISettingsManager::ISettingsManager(QObject* parent)
    : QObject(parent)
{
}

ISettingsManager::~ISettingsManager() = default;

} // namespace tvl::updater
