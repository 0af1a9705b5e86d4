#include "UpdaterPluginCustomUrlClickedEvent.h"

#include <QtCore/QUrlQuery>

namespace tvl::updater {

UpdaterPluginCustomUrlClickedEvent::UpdaterPluginCustomUrlClickedEvent(const QUrl& url)
    : UpdaterPluginEvent(CustomUrlClickedEvent)
    , m_url(url)
{
}

UpdaterPluginCustomUrlClickedEvent::~UpdaterPluginCustomUrlClickedEvent() = default;

QUrl UpdaterPluginCustomUrlClickedEvent::url() const
{
    return m_url;
}

QString UpdaterPluginCustomUrlClickedEvent::action() const
{
    return m_url.host();
}

QString UpdaterPluginCustomUrlClickedEvent::param(const QString& name) const
{
    return QUrlQuery(m_url).queryItemValue(name, QUrl::FullyDecoded);
}

} // namespace tvl::updater
