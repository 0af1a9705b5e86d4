#include "HelloPlugin.h"

#include <basix/Logger.h>
#include <libupdater/ISystemInfo.h>
#include <libupdater/UpdaterPluginApi.h>

bool HelloPlugin::init()
{
    const QString greeting = extraData().toMap().value(QStringLiteral("greeting")).toString();
    auto* system = api()->getObject<tvl::updater::ISystemInfo>();
    TVL_LOG(tvl::Logger::Notice) << greeting << "from"
                                 << (system ? system->osName() : QStringLiteral("an unknown system"));
    return true;
}
