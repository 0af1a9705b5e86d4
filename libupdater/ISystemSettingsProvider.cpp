#include "ISystemSettingsProvider.h"

namespace tvl::updater {

ISystemSettingsProvider::~ISystemSettingsProvider() = default;

} // namespace tvl::updater
