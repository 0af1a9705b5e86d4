#pragma once

#include <libupdater/LibupdaterExport.h>
#include <libupdater/UpdaterPluginEvent.h>

#include <QtCore/QString>
#include <QtCore/QUrl>

namespace tvl::updater {

/**
 * The user clicked a custom link (CustomUrlClickedEvent), written as
 * scheme://action?name=value&...
 */
class LIBUPDATER_EXPORT UpdaterPluginCustomUrlClickedEvent : public UpdaterPluginEvent
{
public:
    explicit UpdaterPluginCustomUrlClickedEvent(const QUrl& url);
    ~UpdaterPluginCustomUrlClickedEvent() override;

    QUrl url() const;
    /// The link's host part; empty when it has none.
    QString action() const;
    /// The decoded value of the query item `name`; empty when there is no such item.
    QString param(const QString& name) const;

private:
    QUrl m_url;
};

} // namespace tvl::updater
