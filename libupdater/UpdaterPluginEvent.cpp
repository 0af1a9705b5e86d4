#include "UpdaterPluginEvent.h"

namespace tvl::updater {

UpdaterPluginEvent::UpdaterPluginEvent(EventType type)
    : m_type(type)
{
}

UpdaterPluginEvent::~UpdaterPluginEvent() = default;

UpdaterPluginEvent::EventType UpdaterPluginEvent::type() const
{
    return m_type;
}

void UpdaterPluginEvent::accept()
{
    m_accepted = true;
}

bool UpdaterPluginEvent::accepted() const
{
    return m_accepted;
}

void registerPluginEventMetaTypes()
{
    static const bool registered = [] {
        qRegisterMetaType<UpdaterPluginEvent*>("tvl::updater::UpdaterPluginEvent*");
        qRegisterMetaType<UpdaterPluginEventPtr>("tvl::updater::UpdaterPluginEventPtr");
        return true;
    }();
    Q_UNUSED(registered);
}

} // namespace tvl::updater
