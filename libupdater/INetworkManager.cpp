#include "INetworkManager.h"

namespace tvl::updater {

INetworkManager::INetworkManager(QObject* parent)
    : QObject(parent)
{
}

INetworkManager::~INetworkManager() = default;

} // namespace tvl::updater
