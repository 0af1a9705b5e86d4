// A plugin that does nothing of its own, copied many times by bench_pluginloading to weigh
// what the plugin host adds to loading a library.
#include <libupdater/UpdaterPlugin.h>

class TrivialPlugin : public tvl::updater::UpdaterPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID UPDATER_PLUGIN_IID)
};

#include "TrivialPlugin.moc"
