#include "UpdaterPluginErrorEvent.h"

namespace tvl::updater {

UpdaterPluginErrorEvent::UpdaterPluginErrorEvent(const QString& text)
    : UpdaterPluginEvent(ErrorEvent)
    , m_error(text, QString())
{
}

UpdaterPluginErrorEvent::UpdaterPluginErrorEvent(const UpdaterError& error)
    : UpdaterPluginEvent(ErrorEvent)
    , m_error(error)
{
}

UpdaterPluginErrorEvent::~UpdaterPluginErrorEvent() = default;

UpdaterError UpdaterPluginErrorEvent::error() const
{
    return m_error;
}

void UpdaterPluginErrorEvent::reclassify(unsigned int category)
{
    m_error.reclassify(category);
}

} // namespace tvl::updater
