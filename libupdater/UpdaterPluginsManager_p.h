#pragma once

#include <libupdater/LibupdaterExport.h>
#include <libupdater/UpdaterPluginsManager.h>

#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtCore/QSet>
#include <QtCore/QStringList>
#include <QtCore/QVector>

class QProgressDialog;

namespace tvl::updater {

/// Orders plugins that need a GUI before those that do not.
LIBUPDATER_EXPORT bool compare_by_gui(UpdaterPluginInfo* a, UpdaterPluginInfo* b);

// Exported for the tests of the plugin host; not installed.
class LIBUPDATER_EXPORT UpdaterPluginsManagerPrivate : public QObject
{
    Q_OBJECT

public:
    explicit UpdaterPluginsManagerPrivate(UpdaterPluginsManager* owner);
    ~UpdaterPluginsManagerPrivate() override;

    /// Places `info` in `order` after everything it needs (depth first).
    void sort_plugins(UpdaterPluginInfo* info, QList<UpdaterPluginInfo*>& visited,
                      QList<UpdaterPluginInfo*>& order, const QStringList& disabled,
                      const QStringList& enabled);

    void discover();
    /// The resolved dependencies of `info` in the order of their names.
    static QList<QPair<UpdaterPluginInfo*, bool>> dependenciesByName(const UpdaterPluginInfo* info);
    /// "<name>:<size>:<mtime>" of the plugin's library, as the setting "plugins.quarantine" lists it.
    static QString quarantineEntry(const UpdaterPluginInfo* info);
    static bool isQuarantined(const UpdaterPluginInfo* info, const QStringList& quarantine);
    /// Adds the plugin that crashed the last runs while starting to "plugins.quarantine", once.
    void quarantinePreviousCrash();
    void pluginUninitialized(UpdaterPlugin* plugin);
    bool load(const QList<UpdaterPluginInfo*>& requested);
    bool unloadPlugin(UpdaterPluginInfo* info);

    static UpdaterPluginsManagerPrivate* get(const UpdaterPluginsManager* manager) { return manager->d; }

public Q_SLOTS:
    void unloadNextPlugin();
    void onPluginUninitialized();
    void showUnloadingProgress();

public:
    QList<UpdaterPluginInfo*> plugins;
    QVector<UpdaterPluginInfo*> unloadQueue;
    QString pluginPath;
    QStringList pluginPaths;
    UpdaterPluginApi* api = nullptr;
    bool hasGui = true;
    bool closingDown = false;
    UpdaterPluginInfo* currentUnloading = nullptr;
    int exitCode = 0;
    bool fatalMandatoryFailures = true;
    QPointer<QProgressDialog> progressDialog;

    UpdaterPluginsManager* owner;
    // The path of the depth-first walk, to name the plugins of a dependency cycle; and the
    // cycles already reported, so that each is reported once however many loads meet it.
    QList<UpdaterPluginInfo*> sortPath;
    QSet<QStringList> reportedCycles;
    /// Descriptor files that gave no record, with the reason.
    QList<QPair<QString, QString>> rejectedDescriptors;
    /// The plugin whose library load or init() runs now.
    const UpdaterPluginInfo* startingPlugin = nullptr;
    bool crashQuarantineDone = false;
};

} // namespace tvl::updater
