#include "ISystemInfo.h"

namespace tvl::updater {

ISystemInfo::ISystemInfo(QObject* parent)
    : QObject(parent)
{
}

ISystemInfo::~ISystemInfo() = default;

} // namespace tvl::updater
