#include "SettingsAttributes.h"

namespace tvl::updater {

int registerSettingsAttributesMetaType()
{
    static const int id = qRegisterMetaType<SettingsAttributes>("tvl::updater::SettingsAttributes");
    return id;
}

} // namespace tvl::updater
