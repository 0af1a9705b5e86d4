#pragma once

#include <libupdater/LibupdaterExport.h>
#include <libupdater/SettingsAttributes.h>
#include <libupdater/UpdaterPluginEvent.h>

#include <QtCore/QGenericArgument>
#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtCore/QStringList>
#include <QtCore/QVariant>

namespace tvl {
class ICISettings;
}

namespace tvl::updater {

class UpdaterPluginApiPrivate;
class UpdaterPluginsManager;

/**
 * The one object through which plugins reach the host and each other. The plugin manager
 * creates it and hands it to every plugin's init().
 *
 * - Object registry: addObject() publishes a service object (for example an implementation
 *   of one of the service interfaces, such as ISettingsManager); getObject<T>() finds the
 *   first registered object that is a T. The API asks registered objects to delete themselves
 *   when it is destroyed.
 * - Events: postEvent() hands an event to every loaded plugin, dependents first.
 * - Calls: callInPlugin() and call() invoke a slot or invokable method by name.
 * - Settings: getSetting() and setSetting() go to the registered settings manager (or, with
 *   SystemSetting, to a registered ISystemSettingsProvider); TranslatedSetting looks a key up
 *   by the current language and country, IconSetting turns the value into a QIcon.
 * - Background mode, restart, quit.
 *
 * Main thread only.
 */
class LIBUPDATER_EXPORT UpdaterPluginApi : public QObject
{
    Q_OBJECT

public:
    /// Options fixed at start from the command line and the application type.
    enum ApplicationOption {
        NoGui = 1,          ///< the application is a console application
        NoInteraction = 2,  ///< "--no-interaction", or "--silent" / "-s": ask the user nothing
        NoRestart = 4,      ///< "--no-restart" or "--uninstall": never restart the updater
        NoFootprint = 8     ///< "--no-footprint": leave nothing behind on the machine
    };
    Q_DECLARE_FLAGS(ApplicationOptions, ApplicationOption)
    Q_FLAG(ApplicationOptions)

    explicit UpdaterPluginApi(UpdaterPluginsManager* manager);
    /// Asks every registered object that still exists to delete itself.
    ~UpdaterPluginApi() override;

    /// Registers `object` (once), tells every loaded plugin through objectAdded() and emits
    /// objectAdded(); the notification happens again when the object is added again.
    void addObject(QObject* object);
    /// Unregisters every entry of `object`, without notification.
    void removeObject(QObject* object);
    /// The registered objects in registration order; destroyed ones read as null.
    QList<QPointer<QObject>> objects() const;

    /**
     * The first registered object that is a T: a QObject class (through its meta-object) or
     * an interface declared with Q_DECLARE_INTERFACE (through its identifier). Null if none.
     */
    template<typename T>
    T* getObject() const
    {
        for (const QPointer<QObject>& object : objects()) {
            if (object) {
                if (T* found = qobject_cast<T*>(object.data()))
                    return found;
            }
        }
        return nullptr;
    }

    /**
     * Invokes `method` (a method name without arguments, such as "refresh") with up to three
     * Q_ARG arguments in the loaded plugin named `pluginName`, or in every loaded plugin that
     * has it when the name is empty. True when at least one invocation fitted. False when
     * closing down.
     */
    bool callInPlugin(const QString& pluginName, const char* method,
                      QGenericArgument a1 = QGenericArgument(nullptr),
                      QGenericArgument a2 = QGenericArgument(nullptr),
                      QGenericArgument a3 = QGenericArgument(nullptr));
    /// callInPlugin() in every loaded plugin.
    bool call(const char* method, QGenericArgument a1 = QGenericArgument(nullptr),
              QGenericArgument a2 = QGenericArgument(nullptr),
              QGenericArgument a3 = QGenericArgument(nullptr));

    bool pluginIsLoaded(const QString& name) const;
    /// The names of the loaded plugins, in load order (each after what it depends on).
    QStringList loadedPluginNames() const;
    ApplicationOptions applicationOptions() const;
    /// Adds an option; options are never cleared.
    void setApplicationOption(ApplicationOption option);
    /// True once the application is shutting down: events and calls are no longer delivered.
    bool closingDown() const;
    /// Starts the orderly shutdown, ending the application with `code`.
    void exit(int code);

    /**
     * Reads a setting. Without TranslatedSetting: from the registered ISystemSettingsProvider
     * first when `attributes` has SystemSetting, then from the settings manager with the scopes
     * of `attributes` (as a QIcon with IconSetting), else `defaultValue`. With
     * TranslatedSetting: the first value found of "key.<lang>_<COUNTRY>", "key.<lang>",
     * "key.<default_lang>" and "key.en", from the settings "i18n.lang", "i18n.country" and
     * "i18n.default_lang"; `key` alone is never read.
     */
    Q_INVOKABLE QVariant getSetting(const QString& key, const QVariant& defaultValue = QVariant(),
                                    SettingsAttributes attributes = AllScopes) const;
    /**
     * Writes a setting: to the ISystemSettingsProvider with SystemSetting, else to the settings
     * manager (persistently with PersistSetting; without a change report with SilentSetting or
     * while closing down).
     */
    Q_INVOKABLE void setSetting(const QString& key, const QVariant& value,
                                tvl::updater::SettingsAttributes attributes = AllScopes);
    /// postEvent() of a shared pointer to `event`: the API takes ownership of it.
    Q_INVOKABLE bool postEvent(tvl::updater::UpdaterPluginEvent* event);
    /**
     * Hands `event` to every loaded plugin's updaterEvent(), dependents first, and returns
     * whether any accepted it. Nothing is delivered (and false returned) while closing down.
     */
    Q_INVOKABLE bool postEvent(tvl::updater::UpdaterPluginEventPtr event);

    /**
     * A configuration script over `file`, owned by the caller, with the variables "root" and
     * "sys.osname" set; not evaluated yet.
     */
    tvl::ICISettings* loadSettings(const QString& file, const QString& root) const;
    /// The setting "dev_mode".
    bool isDevMode() const;
    /**
     * Enters background mode: every loaded plugin is asked through backgroundModeActivated(true)
     * and those answering 1 are unloaded. Leaving it (false) loads them again.
     */
    void activateBackgroundMode(bool activate);
    /**
     * Restarts the updater: the command line gets `arguments` and what every loaded plugin's
     * prepareToRestart() returns (after the current arguments when `keepCurrentArguments`), and
     * the new process starts once this one has shut down in order.
     */
    void restart_updater(const QStringList& arguments, bool keepCurrentArguments);

Q_SIGNALS:
    void settingChanged(QString key, QVariant value);
    void objectAdded(QObject* object);

public Q_SLOTS:
    /// exit(0).
    void quit();
    /// Posts an AboutToQuit event; quits unless a plugin accepts it.
    void onLastWindowsClosed();

private:
    Q_DISABLE_COPY(UpdaterPluginApi)
    UpdaterPluginApiPrivate* const d;
};

Q_DECLARE_OPERATORS_FOR_FLAGS(UpdaterPluginApi::ApplicationOptions)

} // namespace tvl::updater
