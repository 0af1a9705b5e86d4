#pragma once

#include <libupdater/LibupdaterExport.h>
#include <libupdater/UpdaterPluginEvent.h>

#include <QtCore/QString>

namespace tvl::updater {

/**
 * A yes/no question for the user (AskToUserEvent). The plugin that can ask, asks and stores
 * the answer with setUserAccept(); when none does, the answer given at construction stands.
 */
class LIBUPDATER_EXPORT UpdaterPluginAskToUserEvent : public UpdaterPluginEvent
{
public:
    UpdaterPluginAskToUserEvent(const QString& message, bool userAccept);
    ~UpdaterPluginAskToUserEvent() override;

    QString message() const;
    bool userAccepted() const;
    void setUserAccept(bool userAccept);

private:
    QString m_message;
    bool m_userAccept;
};

} // namespace tvl::updater
