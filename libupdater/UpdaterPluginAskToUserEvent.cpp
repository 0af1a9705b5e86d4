#include "UpdaterPluginAskToUserEvent.h"

namespace tvl::updater {

UpdaterPluginAskToUserEvent::UpdaterPluginAskToUserEvent(const QString& message, bool userAccept)
    : UpdaterPluginEvent(AskToUserEvent)
    , m_message(message)
    , m_userAccept(userAccept)
{
}

UpdaterPluginAskToUserEvent::~UpdaterPluginAskToUserEvent() = default;

QString UpdaterPluginAskToUserEvent::message() const
{
    return m_message;
}

bool UpdaterPluginAskToUserEvent::userAccepted() const
{
    return m_userAccept;
}

void UpdaterPluginAskToUserEvent::setUserAccept(bool userAccept)
{
    m_userAccept = userAccept;
}

} // namespace tvl::updater
