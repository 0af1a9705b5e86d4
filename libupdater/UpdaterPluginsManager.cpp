#include "UpdaterPluginsManager.h"
#include "UpdaterPluginsManager_p.h"

#include "ISettingsManager.h"
#include "PluginCalls_p.h"
#include "SettingsAttributes.h"
#include "UiUtils.h"
#include "Updater.h"
#include "UpdaterPlugin.h"
#include "UpdaterPluginApi.h"
#include "UpdaterPluginLifecycleEvents.h"
#include "UpdaterPluginInfo.h"
#include "UpdaterPluginInfo_p.h"

#include <basix/Logger.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFileInfo>
#include <QtCore/QHash>
#include <QtCore/QSet>
#include <QtWidgets/QApplication>
#include <QtWidgets/QProgressBar>
#include <QtWidgets/QProgressDialog>

#include <algorithm>

namespace tvl::updater {

namespace {

constexpr char QuitSilently[] = "QUIT_SILENTLY";
constexpr int MandatoryFailureExitCode = 126;

constexpr int QuarantineAfterCrashes = 2;

UpdaterPluginInfoPrivate* detail(const UpdaterPluginInfo* info)
{
    return UpdaterPluginInfoPrivate::get(info);
}

} // namespace

/// Notes in the crash marker which plugin starts while it exists, and what started before it
/// (a plugin's init() may load another) again when it goes.
class StartingPluginNote
{
public:
    StartingPluginNote(UpdaterPluginsManagerPrivate* manager, const UpdaterPluginInfo* info)
        : m_manager(manager)
        , m_previous(manager->startingPlugin)
    {
        m_manager->startingPlugin = info;
        tv_note_starting_plugin(info->name(), info->libraryFile());
    }
    ~StartingPluginNote()
    {
        m_manager->startingPlugin = m_previous;
        tv_note_starting_plugin(m_previous ? m_previous->name() : QString(),
                                m_previous ? m_previous->libraryFile() : QString());
    }
    StartingPluginNote(const StartingPluginNote&) = delete;
    StartingPluginNote& operator=(const StartingPluginNote&) = delete;

private:
    UpdaterPluginsManagerPrivate* m_manager;
    const UpdaterPluginInfo* m_previous;
};

bool compare_by_gui(UpdaterPluginInfo* a, UpdaterPluginInfo* b)
{
    if (a->needGUI() == b->needGUI())
        return false;
    return a->needGUI();
}

UpdaterPluginsManagerPrivate::UpdaterPluginsManagerPrivate(UpdaterPluginsManager* owner)
    : owner(owner)
{
}

UpdaterPluginsManagerPrivate::~UpdaterPluginsManagerPrivate()
{
    closingDown = true;
    // Each record leaves the list before it goes: a plugin object deleted with its record may
    // still reach the API, which walks the list.
    while (!plugins.isEmpty()) {
        UpdaterPluginInfo* info = plugins.takeLast();
        if (info->plugin())
            TVL_LOG(Logger::Warning) << "Destroying" << info->name() << "while it's still loaded";
        delete info;
    }
    delete api;
    api = nullptr;
    delete progressDialog;
}

void UpdaterPluginsManagerPrivate::discover()
{
    for (UpdaterPluginInfo* info : std::as_const(plugins))
        detail(info)->dependencies.clear();

    QDir directory(pluginPath);
    directory.setNameFilters(QStringList{QStringLiteral("*.updaterplugin")});
    const QFileInfoList entries = directory.entryInfoList();
    // What is known already, looked up by file and by name: a directory may hold thousands.
    QSet<QString> filesRead;
    QHash<QString, const UpdaterPluginInfo*> byName;
    for (const UpdaterPluginInfo* info : std::as_const(plugins)) {
        filesRead.insert(info->descriptorFile());
        byName.insert(info->name(), info);
    }
    for (const auto& rejected : std::as_const(rejectedDescriptors))
        filesRead.insert(rejected.first);
    for (const QFileInfo& entry : entries) {
        TVL_LOG(Logger::Notice) << QStringLiteral("Reading %1").arg(entry.fileName());
        const QString file = entry.absoluteFilePath();
        if (filesRead.contains(file))
            continue; // the same directory read again
        filesRead.insert(file);
        auto* info = new UpdaterPluginInfo;
        if (!detail(info)->read(file)) {
            TVL_LOG(Logger::Warning) << QStringLiteral("Descriptor %1 gives no plugin: %2").arg(file, detail(info)->readError);
            rejectedDescriptors.append({file, detail(info)->readError});
            delete info;
            continue;
        }
        // Two records of one name would share one plugin object, and the first unload would free
        // it under the other: the name stays with the descriptor read first.
        if (const UpdaterPluginInfo* holder = byName.value(info->name())) {
            TVL_LOG(Logger::Warning) << QStringLiteral("Descriptor %1 ignored: plugin %2 is already described by %3")
                                            .arg(file, info->name(), holder->descriptorFile());
            rejectedDescriptors.append({file, UpdaterPluginsManager::tr("the name %1 is already taken by %2")
                                                  .arg(info->name(), holder->descriptorFile())});
            delete info;
            continue;
        }
        byName.insert(info->name(), info);
        plugins.append(info);
    }

    for (UpdaterPluginInfo* info : std::as_const(plugins))
        detail(info)->resolveDependencies(plugins);

    if (plugins.isEmpty())
        TVL_LOG(Logger::Warning) << "NO PLUGIN";
}

QList<QPair<UpdaterPluginInfo*, bool>> UpdaterPluginsManagerPrivate::dependenciesByName(const UpdaterPluginInfo* info)
{
    const QMap<UpdaterPluginInfo*, bool>& map = detail(info)->dependencies;
    QList<QPair<UpdaterPluginInfo*, bool>> dependencies;
    dependencies.reserve(map.size());
    for (auto it = map.cbegin(); it != map.cend(); ++it)
        dependencies.append({it.key(), it.value()});
    // The map is ordered by the records' addresses, which change from run to run.
    std::stable_sort(dependencies.begin(), dependencies.end(),
                     [](const auto& a, const auto& b) { return a.first->name() < b.first->name(); });
    return dependencies;
}

void UpdaterPluginsManagerPrivate::sort_plugins(UpdaterPluginInfo* info,
                                                QList<UpdaterPluginInfo*>& visited,
                                                QList<UpdaterPluginInfo*>& order,
                                                const QStringList& disabled,
                                                const QStringList& enabled)
{
    if (visited.lastIndexOf(info) >= 0) {
        const qsizetype start = sortPath.indexOf(info);
        if (start >= 0) {
            // Still on the path of the walk: a cycle. It is placed all the same (the plugin
            // first reached goes last), but the user should hear of it once.
            QStringList cycle;
            for (qsizetype i = start; i < sortPath.size(); ++i)
                cycle.append(sortPath.at(i)->name());
            QStringList key = cycle;
            std::rotate(key.begin(), std::min_element(key.begin(), key.end()), key.end());
            if (!reportedCycles.contains(key)) {
                reportedCycles.insert(key);
                cycle.append(info->name());
                TVL_LOG(Logger::Warning)
                    << QStringLiteral("Dependency cycle: %1").arg(cycle.join(QStringLiteral(" -> ")));
            }
        }
        return;
    }
    visited.append(info);
    sortPath.append(info);

    for (const auto& [dependency, hard] : dependenciesByName(info)) {
        if (dependency->needGUI() && !hasGui)
            continue;
        const bool excluded = disabled.contains(dependency->name())
            || (!dependency->autoLoad() && !enabled.contains(dependency->name()));
        if (!excluded || hard)
            sort_plugins(dependency, visited, order, disabled, enabled);
    }

    sortPath.removeLast();
    order.append(info);
}

bool UpdaterPluginsManagerPrivate::load(const QList<UpdaterPluginInfo*>& requested)
{
    TVL_LOG(Logger::Trace) << "has GUI:" << hasGui;
    const bool hadSettings = api->getObject<ISettingsManager>() != nullptr;
    if (hadSettings)
        quarantinePreviousCrash();

    QStringList disabled =
        setting_to_string_list(api->getSetting(QStringLiteral("plugins.disable"), QVariant(), AllScopes));
    const QStringList enabled =
        setting_to_string_list(api->getSetting(QStringLiteral("plugins.enable"), QVariant(), AllScopes));
    const QStringList quarantine = hadSettings
        ? setting_to_string_list(api->getSetting(QStringLiteral("plugins.quarantine"), QVariant(), AllScopes))
        : QStringList();

    QList<UpdaterPluginInfo*> candidates;
    const QList<UpdaterPluginInfo*> all = plugins;
    for (UpdaterPluginInfo* info : all) {
        if (hadSettings && !info->isLoaded()) {
            if (disabled.contains(info->name()) || (info->needGUI() && !hasGui))
                continue;
            if (info->unsafe() && tv_previous_run_crashed()) {
                TVL_LOG(Logger::Warning)
                    << QStringLiteral("unsafe plugin '%1' not loaded ( previous run crashed )").arg(info->name());
                continue;
            }
            detail(info)->quarantined = !info->isMandatory() && isQuarantined(info, quarantine);
            if (info->isQuarantined()) {
                TVL_LOG(Logger::Warning)
                    << QStringLiteral("Plugin %1 not loaded: it is in \"plugins.quarantine\" since it crashed the "
                                      "launcher while starting")
                           .arg(info->name());
                detail(info)->errorString = UpdaterPluginsManager::tr(
                    "Quarantined: it crashed the launcher while starting, twice in a row. It is tried again once its "
                    "library changes, or when it is removed from the setting \"plugins.quarantine\".");
                continue;
            }
            if (!info->autoLoad() && !enabled.contains(info->name()))
                continue;
        }
        candidates.append(info);
        for (const QString& replaced : info->replacedPlugins()) {
            TVL_LOG(Logger::Warning) << QStringLiteral("Plugin %1 replace %2").arg(info->name(), replaced);
            for (UpdaterPluginInfo* other : all) {
                if (other->name() == replaced)
                    disabled.append(other->name());
            }
        }
    }

    // By name first, so that plugins of equal GUI need keep one order from run to run.
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](UpdaterPluginInfo* a, UpdaterPluginInfo* b) { return a->name() < b->name(); });
    std::stable_sort(candidates.begin(), candidates.end(), compare_by_gui);

    QList<UpdaterPluginInfo*> visited;
    QList<UpdaterPluginInfo*> order;
    for (UpdaterPluginInfo* info : std::as_const(candidates)) {
        if (!disabled.contains(info->name()))
            sort_plugins(info, visited, order, disabled, enabled);
    }

    for (UpdaterPluginInfo* info : std::as_const(order)) {
        if (info->isLoaded() || !requested.contains(info))
            continue;
        TVL_LOG(Logger::Notice) << QStringLiteral("Loading plugin %1").arg(info->name());

        QStringList missing;
        for (const auto& [dependency, hard] : dependenciesByName(info)) {
            if (hard && !dependency->isLoaded()) {
                TVL_LOG(Logger::Error)
                    << QStringLiteral("Plugin %1 can not be loaded because the dependence %2 is not loaded")
                           .arg(info->name(), dependency->name());
                missing.append(dependency->name());
            }
        }
        if (!missing.isEmpty()) {
            detail(info)->errorString = UpdaterPluginsManager::tr("It needs %1, which is not loaded.")
                                            .arg(missing.join(QStringLiteral(", ")));
            continue;
        }

        _plugin_loading_error_string.clear();
        bool loaded = false;
        {
            const StartingPluginNote note(this, info);
            loaded = detail(info)->loadPlugin();
            if (loaded) {
                QElapsedTimer timer;
                timer.start();
                loaded = info->plugin()->init(api);
                detail(info)->initTime = timer.nsecsElapsed() / 1000;
            }
        }
        if (loaded) {
            if (!hadSettings && api->getObject<ISettingsManager>()) {
                // This plugin provided the settings: start again with the filters applied;
                // what is loaded stays loaded.
                return load(requested);
            }
            continue;
        }
        if (info->plugin()) {
            TVL_LOG(Logger::Error) << "Plugin initialization failed";
            detail(info)->errorString = _plugin_loading_error_string.isEmpty()
                ? UpdaterPluginsManager::tr("Its init() failed.")
                : UpdaterPluginsManager::tr("Its init() failed: %1").arg(_plugin_loading_error_string);
            detail(info)->unloadPlugin(true);
        }

        TVL_LOG(Logger::Warning) << QStringLiteral("Plugin %1 not loaded").arg(info->name());
        if (fatalMandatoryFailures && info->isMandatory()) {
            TVL_LOG(Logger::Error)
                << QStringLiteral("Required plugin error : plugin '%1' isn't loaded.").arg(info->name());
            if (_plugin_loading_error_string != QLatin1String(QuitSilently)) {
                tv_display_critical_error(
                    UpdaterPluginsManager::tr("Initialisation failed"),
                    UpdaterPluginsManager::tr("The application has encountered a problem while loading "
                                              "'plugin %1'.\nIf the problem persists, please contact our "
                                              "customers service.")
                        .arg(info->name()),
                    _plugin_loading_error_string);
            }
            QCoreApplication::exit(MandatoryFailureExitCode);
            return false;
        }
        _plugin_loading_error_string.clear();
    }

    QList<UpdaterPluginInfo*> reordered = order;
    for (UpdaterPluginInfo* info : std::as_const(plugins)) {
        if (!order.contains(info))
            reordered.append(info);
    }
    plugins = reordered;

    api->postEvent(UpdaterPluginEventPtr(new AllPluginsLoadedEventUpdaterPluginEvent));

    if (auto* application = qobject_cast<QGuiApplication*>(QCoreApplication::instance())) {
        connect(application, &QGuiApplication::lastWindowClosed, api,
                &UpdaterPluginApi::onLastWindowsClosed, Qt::UniqueConnection);
    }
    return true;
}

QString UpdaterPluginsManagerPrivate::quarantineEntry(const UpdaterPluginInfo* info)
{
    const QFileInfo library(info->libraryFile());
    return QStringLiteral("%1:%2:%3").arg(info->name()).arg(library.size()).arg(library.lastModified().toSecsSinceEpoch());
}

bool UpdaterPluginsManagerPrivate::isQuarantined(const UpdaterPluginInfo* info, const QStringList& quarantine)
{
    // An entry holds the library's size and time: a library replaced since is tried again.
    return quarantine.contains(quarantineEntry(info));
}

void UpdaterPluginsManagerPrivate::quarantinePreviousCrash()
{
    if (crashQuarantineDone)
        return;
    crashQuarantineDone = true;
    if (tv_previous_run_crash_count() < QuarantineAfterCrashes)
        return;
    const QString name = tv_previous_run_crashed_plugin();
    const auto it = std::find_if(plugins.cbegin(), plugins.cend(), [&name](auto* info) { return info->name() == name; });
    if (it == plugins.cend())
        return;
    if ((*it)->isMandatory()) {
        TVL_LOG(Logger::Warning) << QStringLiteral("Plugin %1 crashed the launcher %2 runs in a row while starting; "
                                                   "it is mandatory, so it is loaded all the same")
                                        .arg(name)
                                        .arg(tv_previous_run_crash_count());
        return;
    }
    QStringList quarantine =
        setting_to_string_list(api->getSetting(QStringLiteral("plugins.quarantine"), QVariant(), AllScopes));
    const QString entry = quarantineEntry(*it);
    if (quarantine.contains(entry))
        return;
    quarantine.append(entry);
    api->setSetting(QStringLiteral("plugins.quarantine"), quarantine, SettingsAttributes(AllScopes) | PersistSetting);
    TVL_LOG(Logger::Warning) << QStringLiteral("Plugin %1 crashed the launcher %2 runs in a row while starting: "
                                               "quarantined until its library changes (setting \"plugins.quarantine\")")
                                    .arg(name)
                                    .arg(tv_previous_run_crash_count());
}

bool UpdaterPluginsManagerPrivate::unloadPlugin(UpdaterPluginInfo* info)
{
    if (!info)
        return false;
    if (!info->isLoaded())
        return true;
    TVL_LOG(Logger::Notice) << "Unload" << info->name();
    return detail(info)->unloadPlugin(!closingDown);
}

void UpdaterPluginsManagerPrivate::unloadNextPlugin()
{
    if (currentUnloading)
        return;

    while (!unloadQueue.isEmpty()) {
        UpdaterPluginInfo* info = unloadQueue.takeLast();
        if (!info || !info->isLoaded() || !info->plugin())
            continue;
        currentUnloading = info;
        UpdaterPlugin* plugin = info->plugin();
        connect(plugin, &UpdaterPlugin::uninitialized, this,
                &UpdaterPluginsManagerPrivate::onPluginUninitialized,
                Qt::ConnectionType(Qt::QueuedConnection | Qt::UniqueConnection));
        TVL_LOG(Logger::Notice) << "Uninitialize" << info->name();
        showUnloadingProgress();
        if (!runGuarded(plugin, "uninit", [plugin] { plugin->uninit(); })) {
            // A plugin whose uninit() threw will not say it is done: it counts as done.
            QMetaObject::invokeMethod(
                this, [this, plugin = QPointer<UpdaterPlugin>(plugin)] { pluginUninitialized(plugin); },
                Qt::QueuedConnection);
        }
        return;
    }

    for (UpdaterPluginInfo* info : std::as_const(plugins)) {
        if (info->isLoaded() && info->plugin())
            return; // still on its way out
    }
    QCoreApplication::exit(exitCode);
}

void UpdaterPluginsManagerPrivate::onPluginUninitialized()
{
    pluginUninitialized(qobject_cast<UpdaterPlugin*>(sender()));
}

void UpdaterPluginsManagerPrivate::pluginUninitialized(UpdaterPlugin* plugin)
{
    if (!plugin || !currentUnloading || currentUnloading->plugin() != plugin)
        return;
    connect(currentUnloading, &UpdaterPluginInfo::unloaded, this,
            &UpdaterPluginsManagerPrivate::unloadNextPlugin,
            Qt::ConnectionType(Qt::QueuedConnection | Qt::UniqueConnection));
    showUnloadingProgress();
    UpdaterPluginInfo* info = currentUnloading;
    unloadPlugin(info);
    currentUnloading = nullptr;
}

void UpdaterPluginsManagerPrivate::showUnloadingProgress()
{
    // Widgets need a QApplication, whatever the caller said about the GUI.
    if (!closingDown || !hasGui || !qobject_cast<QApplication*>(QCoreApplication::instance()))
        return;

    if (!progressDialog) {
        auto* dialog = new QProgressDialog;
        auto* bar = new QProgressBar(dialog);
        bar->setTextVisible(false);
        dialog->setBar(bar);
        dialog->setAutoClose(true);
        dialog->setAutoReset(true);
        dialog->setMinimumDuration(800);
        dialog->setCancelButtonText(UpdaterPluginsManager::tr("Terminate"));
        dialog->setWindowTitle(UpdaterPluginsManager::tr("%1 is shutting down...")
                                   .arg(QCoreApplication::applicationName()));
        dialog->setAttribute(Qt::WA_DeleteOnClose);
        dialog->setWindowModality(Qt::ApplicationModal);
        dialog->setMinimumSize(400, 200);
        connect(dialog, &QProgressDialog::canceled, QCoreApplication::instance(), &QCoreApplication::quit);
        tv_center_on_screen(*dialog);
        progressDialog = dialog;
    }

    // Not open(): it would show the dialog at once, and only window-modal; left to itself the
    // dialog appears after its minimum duration, application-modal.
    progressDialog->setRange(0, int(plugins.size()));
    progressDialog->setValue(int(plugins.size() - unloadQueue.size() - 1));
    progressDialog->setLabelText(UpdaterPluginsManager::tr("Unloading %1")
                                     .arg(currentUnloading ? currentUnloading->name() : QStringLiteral("...")));
}

UpdaterPluginsManager::UpdaterPluginsManager(QObject* parent)
    : QObject(parent)
    , d(new UpdaterPluginsManagerPrivate(this))
{
    d->api = new UpdaterPluginApi(this);
    if (auto* application = qobject_cast<QApplication*>(QCoreApplication::instance()))
        application->setQuitOnLastWindowClosed(false);
    registerPluginMetaType();
}

UpdaterPluginsManager::~UpdaterPluginsManager()
{
    delete d;
}

void UpdaterPluginsManager::setPluginPath(const QString& path)
{
    d->pluginPath = path;
    if (!d->pluginPaths.contains(path))
        d->pluginPaths.append(path);
    QCoreApplication::addLibraryPath(path);
    d->discover();
}

QString UpdaterPluginsManager::pluginPath() const
{
    return d->pluginPath;
}

QStringList UpdaterPluginsManager::pluginPaths() const
{
    return d->pluginPaths;
}

QList<QPair<QString, QString>> UpdaterPluginsManager::rejectedDescriptors() const
{
    return d->rejectedDescriptors;
}

QList<UpdaterPluginInfo*> UpdaterPluginsManager::plugins() const
{
    return d->plugins;
}

QList<UpdaterPlugin*> UpdaterPluginsManager::loadedPlugins() const
{
    QList<UpdaterPlugin*> loaded;
    for (UpdaterPluginInfo* info : std::as_const(d->plugins)) {
        if (info->isLoaded() && info->plugin())
            loaded.prepend(info->plugin());
    }
    return loaded;
}

bool UpdaterPluginsManager::closingDown() const
{
    return d->closingDown;
}

UpdaterPluginApi* UpdaterPluginsManager::api() const
{
    return d->api;
}

bool UpdaterPluginsManager::hasGui() const
{
    return d->hasGui;
}

bool UpdaterPluginsManager::loadPlugins(bool hasGUi)
{
    d->hasGui = hasGUi;
    return d->load(d->plugins);
}

bool UpdaterPluginsManager::loadPlugin(UpdaterPluginInfo* plugin)
{
    // Loaded again before its unload got its turn, or while it uninitialises (background mode left at
    // once, by a game that ended as it began): a queued unload is dropped, one under way is finished
    // now, so that the plugin that stays loaded is never unloaded afterwards by what was still pending.
    d->unloadQueue.removeAll(plugin);
    if (plugin && d->currentUnloading == plugin) {
        if (UpdaterPlugin* dying = plugin->plugin())
            disconnect(dying, &UpdaterPlugin::uninitialized, d, nullptr);
        d->currentUnloading = nullptr;
        d->unloadPlugin(plugin);
        QMetaObject::invokeMethod(d, &UpdaterPluginsManagerPrivate::unloadNextPlugin, Qt::QueuedConnection);
    }
    return d->load(QList<UpdaterPluginInfo*>{plugin});
}

bool UpdaterPluginsManager::unloadPlugin(UpdaterPluginInfo* plugin)
{
    d->unloadQueue.append(plugin);
    d->unloadNextPlugin();
    return true;
}

void UpdaterPluginsManager::unloadPlugins()
{
    for (UpdaterPluginInfo* info : std::as_const(d->plugins))
        d->unloadQueue.append(info);
    d->unloadNextPlugin();
}

void UpdaterPluginsManager::quit(int status)
{
    if (d->closingDown)
        return;
    if (status != 0)
        d->exitCode = status;
    d->closingDown = true;
    QMetaObject::invokeMethod(this, "unloadPlugins", Qt::QueuedConnection);
}

} // namespace tvl::updater
