#include "UpdaterPluginsManager.h"
#include "UpdaterPluginsManager_p.h"

#include "ISettingsManager.h"
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
#include <QtWidgets/QApplication>
#include <QtWidgets/QProgressBar>
#include <QtWidgets/QProgressDialog>

#include <algorithm>

namespace tvl::updater {

namespace {

constexpr char QuitSilently[] = "QUIT_SILENTLY";
constexpr int MandatoryFailureExitCode = 126;

UpdaterPluginInfoPrivate* detail(const UpdaterPluginInfo* info)
{
    return UpdaterPluginInfoPrivate::get(info);
}

} // namespace

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
    for (const QFileInfo& entry : entries) {
        TVL_LOG(Logger::Notice) << QStringLiteral("Reading %1").arg(entry.fileName());
        auto* info = new UpdaterPluginInfo;
        if (detail(info)->read(entry.absoluteFilePath()))
            plugins.append(info);
        else
            delete info;
    }

    for (UpdaterPluginInfo* info : std::as_const(plugins))
        detail(info)->resolveDependencies(plugins);

    if (plugins.isEmpty())
        TVL_LOG(Logger::Warning) << "NO PLUGIN";
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

    const QMap<UpdaterPluginInfo*, bool> dependencies = detail(info)->dependencies;
    for (auto it = dependencies.cbegin(); it != dependencies.cend(); ++it) {
        UpdaterPluginInfo* dependency = it.key();
        if (dependency->needGUI() && !hasGui)
            continue;
        const bool excluded = disabled.contains(dependency->name())
            || (!dependency->autoLoad() && !enabled.contains(dependency->name()));
        if (!excluded || it.value())
            sort_plugins(dependency, visited, order, disabled, enabled);
    }

    sortPath.removeLast();
    order.append(info);
}

bool UpdaterPluginsManagerPrivate::load(const QList<UpdaterPluginInfo*>& requested)
{
    TVL_LOG(Logger::Trace) << "has GUI:" << hasGui;
    const bool hadSettings = api->getObject<ISettingsManager>() != nullptr;

    QStringList disabled =
        api->getSetting(QStringLiteral("plugins.disable"), QVariant(), AllScopes).toStringList();
    const QStringList enabled =
        api->getSetting(QStringLiteral("plugins.enable"), QVariant(), AllScopes).toStringList();

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

    std::sort(candidates.begin(), candidates.end(), compare_by_gui);

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

        bool dependencyMissing = false;
        const QMap<UpdaterPluginInfo*, bool> dependencies = detail(info)->dependencies;
        for (auto it = dependencies.cbegin(); it != dependencies.cend(); ++it) {
            if (it.value() && !it.key()->isLoaded()) {
                TVL_LOG(Logger::Error)
                    << QStringLiteral("Plugin %1 can not be loaded because the dependence %2 is not loaded")
                           .arg(info->name(), it.key()->name());
                dependencyMissing = true;
            }
        }
        if (dependencyMissing)
            continue;

        _plugin_loading_error_string.clear();
        bool loaded = detail(info)->loadPlugin();
        if (loaded) {
            QElapsedTimer timer;
            timer.start();
            loaded = info->plugin()->init(api);
            detail(info)->initTime = timer.nsecsElapsed() / 1000;
            if (!loaded) {
                TVL_LOG(Logger::Error) << "Plugin initialization failed";
                detail(info)->unloadPlugin(true);
            } else if (!hadSettings && api->getObject<ISettingsManager>()) {
                // This plugin provided the settings: start again with the filters applied;
                // what is loaded stays loaded.
                return load(requested);
            }
        }
        if (loaded)
            continue;

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
        connect(info->plugin(), &UpdaterPlugin::uninitialized, this,
                &UpdaterPluginsManagerPrivate::onPluginUninitialized,
                Qt::ConnectionType(Qt::QueuedConnection | Qt::UniqueConnection));
        TVL_LOG(Logger::Notice) << "Uninitialize" << info->name();
        showUnloadingProgress();
        info->plugin()->uninit();
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
    auto* plugin = qobject_cast<UpdaterPlugin*>(sender());
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
    QCoreApplication::addLibraryPath(path);
    d->discover();
}

QString UpdaterPluginsManager::pluginPath() const
{
    return d->pluginPath;
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
