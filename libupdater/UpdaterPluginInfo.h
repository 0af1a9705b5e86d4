#pragma once

#include <libupdater/LibupdaterExport.h>

#include <QtCore/QObject>
#include <QtCore/QStringList>

namespace tvl::updater {

class UpdaterPlugin;
class UpdaterPluginInfoPrivate;

/**
 * The host's record of one plugin: what its descriptor ("<name>.updaterplugin", a
 * configuration script) says, where its library ("lib<name>.so" next to the descriptor) is,
 * whether it is loaded, and the loaded plugin object. The plugin manager creates, loads and
 * unloads records; plugins see them through the manager's plugins().
 */
class LIBUPDATER_EXPORT UpdaterPluginInfo : public QObject
{
    Q_OBJECT

public:
    UpdaterPluginInfo();
    /// Unloads the plugin (deleting a remaining plugin object at once) and frees the record.
    ~UpdaterPluginInfo() override;

    QString name() const;
    /// The plugin object while loaded, else null.
    UpdaterPlugin* plugin() const;
    bool isLoaded() const;
    bool autoLoad() const;
    bool needGUI() const;
    bool unsafe() const;
    bool isMandatory() const;
    /// The names of the plugins this one replaces ("replace").
    QStringList replacedPlugins() const;

    /// Absolute directory of the descriptor.
    QString path() const;
    /// The hard dependencies as written ("depends").
    QStringList dependencies() const;
    /// The soft dependencies as written ("soft_depends").
    QStringList softDependencies() const;
    /// The plugins this one is injected into as a dependency ("required_by").
    QStringList requiredBy() const;
    /// The plugins this one was resolved to depend on, by name, and whether each is a hard
    /// dependency matched by its own name.
    QList<QPair<QString, bool>> resolvedDependencies() const;

    /// The descriptor file, absolute.
    QString descriptorFile() const;
    /// The plugin library, "lib<name>.so" in the descriptor's directory.
    QString libraryFile() const;
    /**
     * Why the plugin is not loaded: its library could not be loaded (with the path tried), its
     * init() failed (with the reason it gave), a hard dependency is missing, its library is
     * already loaded under another name, or it is quarantined. Empty while nothing went wrong.
     */
    QString errorString() const;
    /// True when the plugin was skipped because it crashed the launcher twice while starting.
    bool isQuarantined() const;

    /// Microseconds the last load took to map the library and create the plugin object; -1
    /// before the first load.
    qint64 libraryLoadTime() const;
    /// Microseconds the plugin's init(UpdaterPluginApi*) took at the last load; -1 before.
    qint64 initTime() const;

    UpdaterPluginInfoPrivate* d_func() const { return d; }

Q_SIGNALS:
    /// An unload has completed (the plugin object is gone; the library too if it was unloaded).
    void unloaded();

private:
    Q_DISABLE_COPY(UpdaterPluginInfo)
    friend class UpdaterPluginInfoPrivate;
    UpdaterPluginInfoPrivate* const d;
};

} // namespace tvl::updater

Q_DECLARE_METATYPE(tvl::updater::UpdaterPluginInfo*)
