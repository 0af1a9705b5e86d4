#pragma once

#include <libupdater/LibupdaterExport.h>

#include <QtCore/QList>
#include <QtCore/QObject>

namespace tvl::updater {

class UpdaterPlugin;
class UpdaterPluginApi;
class UpdaterPluginInfo;
class UpdaterPluginsManagerPrivate;

/**
 * The plugin host. The application creates one, points it at the plugin directory with
 * setPluginPath(), which reads every "*.updaterplugin" descriptor there, and calls
 * loadPlugins(). Loading selects the plugins from the "plugins.disable" and "plugins.enable"
 * settings, the GUI flag and the crash marker (once a plugin has registered a settings
 * manager), orders them by their dependencies, loads each library and initialises the plugin
 * with the one UpdaterPluginApi. A mandatory plugin that fails ends the application with exit
 * code 126. quit() unloads the plugins one at a time, dependents first, waiting for each
 * plugin's uninitialized(), and then ends the event loop.
 *
 * Main thread only.
 */
class LIBUPDATER_EXPORT UpdaterPluginsManager : public QObject
{
    Q_OBJECT

public:
    explicit UpdaterPluginsManager(QObject* parent = nullptr);
    ~UpdaterPluginsManager() override;

    /**
     * Reads the descriptors of `path` (and adds it to the application's library paths). Called
     * again with another directory, it adds that directory's plugins to those already read; a
     * descriptor whose plugin name is already taken is left out.
     */
    void setPluginPath(const QString& path);
    /// The directory given last to setPluginPath().
    QString pluginPath() const;
    /// Every directory given to setPluginPath(), in that order.
    QStringList pluginPaths() const;
    /**
     * The descriptor files read that gave no record, each with the reason: it could not be
     * evaluated, it sets no "name", or its name was already taken by another descriptor.
     */
    QList<QPair<QString, QString>> rejectedDescriptors() const;

    /// Every record read, in the order of the last load (dependencies first).
    QList<UpdaterPluginInfo*> plugins() const;
    /// The plugin objects of the loaded records, in the reverse of plugins()' order.
    QList<UpdaterPlugin*> loadedPlugins() const;
    /// True once quit() ran or the manager is being destroyed.
    bool closingDown() const;
    /// The API object handed to every plugin; the host may register its own objects there.
    UpdaterPluginApi* api() const;
    /// Whether the last loadPlugins() was told that a GUI is available.
    bool hasGui() const;

public Q_SLOTS:
    bool loadPlugins(bool hasGUi = true);
    bool loadPlugin(tvl::updater::UpdaterPluginInfo* plugin);
    bool unloadPlugin(tvl::updater::UpdaterPluginInfo* plugin);
    void unloadPlugins();
    /**
     * Starts the orderly shutdown on the next event-loop turn; the event loop ends with
     * `status` once every plugin is gone. A second call changes nothing, and a status of 0
     * keeps an earlier one.
     */
    void quit(int status = 0);

private:
    Q_DISABLE_COPY(UpdaterPluginsManager)
    friend class UpdaterPluginsManagerPrivate;
    UpdaterPluginsManagerPrivate* const d;
};

} // namespace tvl::updater
