#include "UpdaterPlugin.h"

#include "PluginCalls_p.h"
#include "UpdaterPluginApi.h"

namespace tvl::updater {

QString _plugin_loading_error_string;

UpdaterPlugin::UpdaterPlugin() = default;

UpdaterPlugin::~UpdaterPlugin() = default;

bool UpdaterPlugin::init()
{
    return true;
}

void UpdaterPlugin::uninit()
{
    Q_EMIT uninitialized();
}

void UpdaterPlugin::objectAdded(QObject*)
{
}

void UpdaterPlugin::updaterEvent(UpdaterPluginEventPtr)
{
}

int UpdaterPlugin::backgroundModeActivated(bool)
{
    return 0;
}

QStringList UpdaterPlugin::prepareToRestart()
{
    return QStringList();
}

bool UpdaterPlugin::init(UpdaterPluginApi* api)
{
    m_api = api;
    const bool result = callGuarded(this, "init", false, [this] { return init(); });
    if (api) {
        for (const QPointer<QObject>& object : api->objects()) {
            if (object)
                runGuarded(this, "objectAdded", [this, &object] { objectAdded(object); });
        }
    }
    return result;
}

const QVariant& UpdaterPlugin::extraData() const
{
    return m_extraData;
}

void UpdaterPlugin::setLoadingErrorString(const QString& text)
{
    _plugin_loading_error_string = text;
}

UpdaterPluginApi* UpdaterPlugin::api() const
{
    return m_api;
}

void registerPluginMetaType()
{
    static const int id = qRegisterMetaType<UpdaterPlugin*>("tvl::updater::UpdaterPlugin*");
    Q_UNUSED(id)
}

} // namespace tvl::updater
