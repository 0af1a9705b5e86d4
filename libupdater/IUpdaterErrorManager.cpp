#include "IUpdaterErrorManager.h"

namespace tvl::updater {

IUpdaterErrorManager::IUpdaterErrorManager(QObject* parent)
    : QObject(parent)
{
}

IUpdaterErrorManager::~IUpdaterErrorManager() = default;

} // namespace tvl::updater
