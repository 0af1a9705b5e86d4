#include "UpdaterPluginLifecycleEvents.h"

namespace tvl::updater {

TVL_UPDATER_DEFINE_PLUGIN_EVENT(AllPluginsLoadedEventUpdaterPluginEvent)
TVL_UPDATER_DEFINE_PLUGIN_EVENT(AboutToQuitUpdaterPluginEvent)

} // namespace tvl::updater
