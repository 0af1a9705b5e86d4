#pragma once

#include <libupdater/LibupdaterExport.h>
#include <libupdater/UpdaterPluginEvent.h>

namespace tvl::updater {

/// Posted once the host has loaded every plugin.
TVL_UPDATER_DECLARE_PLUGIN_EVENT(LIBUPDATER_EXPORT, AllPluginsLoadedEventUpdaterPluginEvent,
                                 UpdaterPluginEvent::AllPluginsLoadedEvent)

/// Posted when the last window was closed; a plugin that accepts it keeps the application
/// running, otherwise the host quits.
TVL_UPDATER_DECLARE_PLUGIN_EVENT(LIBUPDATER_EXPORT, AboutToQuitUpdaterPluginEvent,
                                 UpdaterPluginEvent::AboutToQuit)

} // namespace tvl::updater
