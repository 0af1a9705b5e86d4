#include "UpdaterPluginApi.h"

#include "ISettingsManager.h"
#include "ISystemSettingsProvider.h"
#include "PluginCalls_p.h"
#include "UiUtils.h"
#include "Updater.h"
#include "UpdaterPlugin.h"
#include "UpdaterPluginInfo.h"
#include "UpdaterPluginLifecycleEvents.h"
#include "UpdaterPluginsManager.h"

#include <basix/ICISettings.h>
#include <basix/Logger.h>
#include <basix/SimpleCommandLineParser.h>
#include <basix/VariantUtils.h>

#include <QtCore/QMetaMethod>
#include <QtGui/QIcon>
#include <QtWidgets/QApplication>

namespace tvl::updater {

namespace {

// Whether a translated lookup goes on to the next language. With IconSetting a key without a
// value still comes back, as a null icon: that counts as nothing found too.
bool nothingFound(const QVariant& value)
{
    if (value.typeId() == QMetaType::QIcon)
        return value.value<QIcon>().isNull();
    return isNull(value);
}

} // namespace

class UpdaterPluginApiPrivate
{
public:
    /// What getObject<ISettingsManager>() finds, without walking the registry on every read.
    ISettingsManager* settingsManager(const UpdaterPluginApi* api);
    /**
     * The loaded plugins, guarded: a plugin called in turn may run a nested event loop (a
     * modal dialog) in which plugins whose turn is still to come are unloaded and deleted.
     */
    QList<QPointer<UpdaterPlugin>> loadedPlugins() const;

    QList<QPointer<QObject>> objects;
    UpdaterPluginsManager* manager = nullptr;
    QList<UpdaterPluginInfo*> backgroundUnloaded;
    UpdaterPluginApi::ApplicationOptions options;

    // The first registered settings manager. Objects added later come after it, so only its
    // removal or destruction can change what the registry answers; until one is registered,
    // every read asks the registry.
    QPointer<ISettingsManager> settings;
};

ISettingsManager* UpdaterPluginApiPrivate::settingsManager(const UpdaterPluginApi* api)
{
    if (!settings)
        settings = api->getObject<ISettingsManager>();
    return settings.data();
}

QList<QPointer<UpdaterPlugin>> UpdaterPluginApiPrivate::loadedPlugins() const
{
    const QList<UpdaterPlugin*> plugins = manager->loadedPlugins();
    return QList<QPointer<UpdaterPlugin>>(plugins.cbegin(), plugins.cend());
}

UpdaterPluginApi::UpdaterPluginApi(UpdaterPluginsManager* manager)
    : d(new UpdaterPluginApiPrivate)
{
    d->manager = manager;

    const SimpleCommandLineParser* arguments = tv_updater_args();
    if (arguments->hasSwitch(QStringLiteral("no-interaction"))
        || arguments->hasSwitch(QStringLiteral("silent"), QLatin1Char('s'))) {
        d->options |= NoInteraction;
    }
    if (arguments->hasSwitch(QStringLiteral("no-restart"))
        || arguments->hasSwitch(QStringLiteral("uninstall"))) {
        d->options |= NoRestart;
    }
    if (!qobject_cast<QApplication*>(QCoreApplication::instance()))
        d->options |= NoGui;
    if (arguments->hasSwitch(QStringLiteral("no-footprint")))
        d->options |= NoFootprint;

    registerPluginEventMetaTypes();
    registerSettingsAttributesMetaType();
}

UpdaterPluginApi::~UpdaterPluginApi()
{
    const QList<QPointer<QObject>> objects = d->objects;
    for (const QPointer<QObject>& object : objects) {
        if (object) {
            TVL_LOG(Logger::Trace) << object->objectName();
            object->deleteLater();
        }
    }
    delete d;
}

void UpdaterPluginApi::addObject(QObject* object)
{
    if (d->objects.lastIndexOf(object) < 0)
        d->objects.append(object);
    for (const QPointer<UpdaterPlugin>& plugin : d->loadedPlugins()) {
        if (plugin)
            runGuarded(plugin, "objectAdded", [&plugin, object] { plugin->objectAdded(object); });
    }
    Q_EMIT objectAdded(object);
}

void UpdaterPluginApi::removeObject(QObject* object)
{
    d->objects.removeAll(object);
    if (d->settings == object)
        d->settings.clear();
}

QList<QPointer<QObject>> UpdaterPluginApi::objects() const
{
    return d->objects;
}

bool UpdaterPluginApi::callInPlugin(const QString& pluginName, const char* method, QGenericArgument a1,
                                    QGenericArgument a2, QGenericArgument a3)
{
    if (closingDown())
        return false;

    const QByteArray prefix = QByteArray(method) + '(';
    bool invoked = false;
    for (UpdaterPluginInfo* info : d->manager->plugins()) {
        if (!info || !info->isLoaded() || !info->plugin())
            continue;
        if (!pluginName.isEmpty() && info->name() != pluginName)
            continue;
        UpdaterPlugin* plugin = info->plugin();
        const QMetaObject* metaObject = plugin->metaObject();
        bool hasMethod = false;
        for (int index = 0; index < metaObject->methodCount() && !hasMethod; ++index)
            hasMethod = metaObject->method(index).methodSignature().startsWith(prefix);
        // invokeMethod() itself picks the overload that the arguments fit; a plugin without
        // any method of the name is not asked, so that it does not warn.
        if (hasMethod
            && callGuarded(plugin, method, false,
                           [&] { return QMetaObject::invokeMethod(plugin, method, Qt::AutoConnection, a1, a2, a3); })) {
            invoked = true;
        }
    }
    return invoked;
}

bool UpdaterPluginApi::call(const char* method, QGenericArgument a1, QGenericArgument a2, QGenericArgument a3)
{
    return callInPlugin(QString(), method, a1, a2, a3);
}

bool UpdaterPluginApi::pluginIsLoaded(const QString& name) const
{
    for (UpdaterPluginInfo* info : d->manager->plugins()) {
        if (info->name() == name)
            return info->isLoaded();
    }
    return false;
}

QStringList UpdaterPluginApi::loadedPluginNames() const
{
    QStringList names;
    for (UpdaterPluginInfo* info : d->manager->plugins()) {
        if (info->isLoaded())
            names.append(info->name());
    }
    return names;
}

UpdaterPluginApi::ApplicationOptions UpdaterPluginApi::applicationOptions() const
{
    return d->options;
}

void UpdaterPluginApi::setApplicationOption(ApplicationOption option)
{
    d->options |= option;
}

bool UpdaterPluginApi::closingDown() const
{
    return d->manager->closingDown();
}

void UpdaterPluginApi::exit(int code)
{
    d->manager->quit(code);
}

void UpdaterPluginApi::quit()
{
    exit(0);
}

QVariant UpdaterPluginApi::getSetting(const QString& key, const QVariant& defaultValue,
                                      SettingsAttributes attributes) const
{
    if (attributes.testFlag(TranslatedSetting)) {
        SettingsAttributes scopes = attributes & ~SettingsAttributes(TranslatedSetting);
        if (scopes == SettingsAttributes())
            scopes = AllScopes;

        QString language = getSetting(QStringLiteral("i18n.lang"), QVariant(), AllScopes).toString();
        QString country = getSetting(QStringLiteral("i18n.country"), QVariant(), AllScopes).toString();
        if (!country.isNull())
            country = country.toUpper();

        QVariant result;
        if (!country.isNull())
            result = getSetting(QStringLiteral("%1.%2_%3").arg(key, language, country), QVariant(), scopes);
        if (nothingFound(result))
            result = getSetting(QStringLiteral("%1.%2").arg(key, language), QVariant(), scopes);
        if (nothingFound(result)) {
            language = getSetting(QStringLiteral("i18n.default_lang"), QVariant(), AllScopes).toString();
            if (!language.isEmpty())
                result = getSetting(QStringLiteral("%1.%2").arg(key, language), QVariant(), scopes);
        }
        if (nothingFound(result))
            result = getSetting(QStringLiteral("%1.%2").arg(key, QStringLiteral("en")), QVariant(), scopes);
        return nothingFound(result) ? defaultValue : result;
    }

    if (attributes.testFlag(SystemSetting)) {
        if (auto* system = getObject<ISystemSettingsProvider>()) {
            const QVariant value = system->value(key);
            if (!isNull(value))
                return value;
        }
    }
    if (auto* settings = d->settingsManager(this)) {
        const QVariant value = settings->getSetting(key, attributes);
        if (attributes.testFlag(IconSetting))
            return QVariant::fromValue(tv_icon_from_path(value));
        return isNull(value) ? defaultValue : value;
    }
    return defaultValue;
}

void UpdaterPluginApi::setSetting(const QString& key, const QVariant& value, SettingsAttributes attributes)
{
    if (attributes.testFlag(SystemSetting)) {
        if (auto* system = getObject<ISystemSettingsProvider>())
            system->setValue(key, value);
        return;
    }
    if (auto* settings = d->settingsManager(this)) {
        settings->setSetting(key, value, attributes.testFlag(PersistSetting),
                             !closingDown() && !attributes.testFlag(SilentSetting));
    }
}

bool UpdaterPluginApi::postEvent(UpdaterPluginEventPtr event)
{
    if (closingDown())
        return false;
    for (const QPointer<UpdaterPlugin>& plugin : d->loadedPlugins()) {
        if (plugin)
            runGuarded(plugin, "updaterEvent", [&plugin, &event] { plugin->updaterEvent(event); });
    }
    return event ? event->accepted() : false;
}

bool UpdaterPluginApi::postEvent(UpdaterPluginEvent* event)
{
    return postEvent(UpdaterPluginEventPtr(event));
}

void UpdaterPluginApi::onLastWindowsClosed()
{
    if (!postEvent(new AboutToQuitUpdaterPluginEvent))
        quit();
}

ICISettings* UpdaterPluginApi::loadSettings(const QString& file, const QString& root) const
{
    auto* settings = new ICISettings(file);
    settings->setValue(QStringLiteral("root"), root);
    settings->setValue(QStringLiteral("sys.osname"), getSetting(QStringLiteral("sys.osname"), QVariant(), AllScopes));
    return settings;
}

bool UpdaterPluginApi::isDevMode() const
{
    return getSetting(QStringLiteral("dev_mode"), false, AllScopes).toBool();
}

void UpdaterPluginApi::activateBackgroundMode(bool activate)
{
    if (activate) {
        for (UpdaterPluginInfo* info : d->manager->plugins()) {
            if (!info || !info->isLoaded() || !info->plugin())
                continue;
            UpdaterPlugin* plugin = info->plugin();
            if (callGuarded(plugin, "backgroundModeActivated", 0, [plugin] { return plugin->backgroundModeActivated(true); }) != 1)
                continue;
            TVL_LOG(Logger::Trace) << "bg mode unload" << info->name();
            if (d->manager->unloadPlugin(info))
                d->backgroundUnloaded.append(info);
        }
        return;
    }

    const QList<UpdaterPluginInfo*> unloaded = d->backgroundUnloaded;
    for (UpdaterPluginInfo* info : unloaded) {
        TVL_LOG(Logger::Trace) << "bg mode reload" << (info ? info->name() : QString());
        if (info && d->manager->loadPlugin(info))
            d->backgroundUnloaded.removeOne(info);
    }
}

void UpdaterPluginApi::restart_updater(const QStringList& arguments, bool keepCurrentArguments)
{
    QStringList command = arguments;
    for (const QPointer<UpdaterPlugin>& plugin : d->loadedPlugins()) {
        if (plugin)
            command += callGuarded(plugin, "prepareToRestart", QStringList(), [&plugin] { return plugin->prepareToRestart(); });
    }
    tv_restart_updater(command, keepCurrentArguments);
    exit(0);
}

} // namespace tvl::updater
