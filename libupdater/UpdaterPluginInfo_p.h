#pragma once

#include <libupdater/LibupdaterExport.h>
#include <libupdater/UpdaterPluginInfo.h>

#include <QtCore/QMap>
#include <QtCore/QObject>
#include <QtCore/QPluginLoader>
#include <QtCore/QPointer>
#include <QtCore/QVariant>

namespace tvl::updater {

class UpdaterPlugin;

// Exported for the tests of the plugin host; not installed.
class LIBUPDATER_EXPORT UpdaterPluginInfoPrivate : public QObject
{
    Q_OBJECT

public:
    explicit UpdaterPluginInfoPrivate(UpdaterPluginInfo* owner);
    ~UpdaterPluginInfoPrivate() override;

    /// Fills the fields from the descriptor `file`; false when it cannot be evaluated or has
    /// no "name" (readError then says which).
    bool read(const QString& file);
    /**
     * Resolves this record's dependencies against every known record: hard ("depends"), soft
     * ("soft_depends") and injected ("required_by", into the records named there). False when
     * a hard dependency is found neither by name nor through a plugin replacing it.
     */
    bool resolveDependencies(QList<UpdaterPluginInfo*>& all);
    bool loadPlugin();
    /// Logs, at level 4, every top-level key of a descriptor that no plugin record reads.
    void reportUnknownKeys(const QStringList& keys) const;
    bool unloadPlugin(bool unloadLibrary);

    static UpdaterPluginInfoPrivate* get(const UpdaterPluginInfo* info) { return info->d_func(); }

public Q_SLOTS:
    void doUnload();

public:
    QString name;
    QString path;
    UpdaterPlugin* plugin = nullptr;
    /// The plugin object of an unload that waits for its deferred deletion.
    QPointer<UpdaterPlugin> dying;
    /// An unload has begun and its library is not yet let go; counted so that a late finish of an
    /// earlier unload does nothing.
    bool unloadPending = false;
    quint64 unloadGeneration = 0;
    QPluginLoader* loader = nullptr;
    QStringList depends;
    QStringList softDepends;
    QStringList requiredBy;
    QStringList replace;
    /// Resolved dependencies; true for a hard dependency matched by its own name.
    QMap<UpdaterPluginInfo*, bool> dependencies;
    QVariant data;
    bool loaded = false;
    bool autoload = true;
    bool mandatory = false;
    bool needGUI = false;
    bool unsafe = false;
    bool unloadLibrary = false;
    UpdaterPluginInfo* owner;

    qint64 libraryLoadTime = -1;
    qint64 initTime = -1;

    /// The descriptor file, absolute.
    QString descriptorFile;
    /// Why read() failed.
    QString readError;
    /// Why the plugin is not loaded, when a load failed or was refused; empty otherwise.
    QString errorString;
    /// Skipped because it crashed the launcher while starting (the setting "plugins.quarantine").
    bool quarantined = false;

    /// The library file: "lib<name>.so" next to the descriptor.
    QString libraryFile() const;
};

} // namespace tvl::updater
