#pragma once

#include <libupdater/UpdaterPlugin.h>

class SettingsPlugin : public tvl::updater::UpdaterPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID UPDATER_PLUGIN_IID)

public:
    bool init() override;
};
