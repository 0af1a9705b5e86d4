#include "IUpdaterNotification.h"

namespace tvl::updater {

IUpdaterNotification::IUpdaterNotification(QObject* parent)
    : QObject(parent)
{
}

IUpdaterNotification::~IUpdaterNotification() = default;

} // namespace tvl::updater
