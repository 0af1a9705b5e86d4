#pragma once

#include <libupdater/LibupdaterExport.h>
#include <libupdater/UpdaterPluginEvent.h>

#include <QtCore/QObject>
#include <QtCore/QStringList>
#include <QtCore/QVariant>

/// The interface identifier every plugin library gives in Q_PLUGIN_METADATA.
#define UPDATER_PLUGIN_IID "com.tarvel.updater.UpdaterPlugin"

namespace tvl::updater {

class UpdaterPluginApi;

/**
 * Why the last plugin that failed to initialise failed. One string for the whole process, not
 * per plugin: the host clears it before loading each plugin and reads it when a mandatory
 * plugin fails. The value "QUIT_SILENTLY" ends the application without an error dialog.
 */
LIBUPDATER_EXPORT extern QString _plugin_loading_error_string;

/**
 * Base class of every plugin's root object. A plugin library holds one class derived from it,
 * declared with
 *
 *     Q_OBJECT
 *     Q_PLUGIN_METADATA(IID UPDATER_PLUGIN_IID)
 *
 * and overrides only what it needs: every virtual operation has a harmless default.
 *
 * The host creates the object when it loads the library, hands it the descriptor's "data" as
 * extraData(), calls init(UpdaterPluginApi*) once, announces registered objects and posts
 * events while the plugin is loaded, calls uninit() at shutdown or unload and deletes the
 * object (later) once it has emitted uninitialized().
 */
class LIBUPDATER_EXPORT UpdaterPlugin : public QObject
{
    Q_OBJECT

public:
    UpdaterPlugin();
    ~UpdaterPlugin() override;

    /**
     * The plugin's own start-up; false means it failed (call setLoadingErrorString() first to
     * tell the user why). Default: true.
     */
    virtual bool init();
    /**
     * The plugin's shutdown. It may finish later, but it must emit uninitialized() when done:
     * the host waits for that before deleting the plugin. Default: emits it at once.
     */
    virtual void uninit();
    /// Called for every object any plugin registers with the API, and for every object already
    /// registered when this plugin starts. Default: nothing.
    virtual void objectAdded(QObject* object);
    /// Receives events posted through the API; accept() them to tell the poster they were
    /// handled. Default: nothing.
    virtual void updaterEvent(tvl::updater::UpdaterPluginEventPtr event);
    /**
     * Told when the application enters background mode. Exactly 1 asks the host to unload
     * this plugin until background mode ends; anything else keeps it loaded. Default: 0.
     */
    virtual int backgroundModeActivated(bool activated);
    /// Arguments this plugin wants on the command line of the restarted updater. Default: none.
    virtual QStringList prepareToRestart();

    /**
     * What the host calls once after loading: keeps `api`, runs init(), then announces every
     * object already registered with the API through objectAdded() (whether or not init()
     * succeeded) and returns init()'s result.
     */
    bool init(tvl::updater::UpdaterPluginApi* api);

    /// The descriptor's "data" value; invalid when it has none.
    const QVariant& extraData() const;

    /// Sets the process-wide loading-error string (see _plugin_loading_error_string).
    void setLoadingErrorString(const QString& text);

Q_SIGNALS:
    void uninitialized();

protected:
    /// The host's API; null until init(UpdaterPluginApi*) ran.
    tvl::updater::UpdaterPluginApi* api() const;

private:
    friend class UpdaterPluginInfoPrivate;
    Q_DISABLE_COPY(UpdaterPlugin)

    UpdaterPluginApi* m_api = nullptr;
    QVariant m_extraData;
};

/// Registers "tvl::updater::UpdaterPlugin*" with the meta-type system, once per process.
LIBUPDATER_EXPORT void registerPluginMetaType();

} // namespace tvl::updater

Q_DECLARE_METATYPE(tvl::updater::UpdaterPlugin*)
