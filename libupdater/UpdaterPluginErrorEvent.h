#pragma once

#include <libupdater/LibupdaterExport.h>
#include <libupdater/UpdaterError.h>
#include <libupdater/UpdaterPluginEvent.h>

namespace tvl::updater {

/// An error raised by a plugin, for whoever manages errors (ErrorEvent).
class LIBUPDATER_EXPORT UpdaterPluginErrorEvent : public UpdaterPluginEvent
{
public:
    /// An error of unknown category with the given text and no html.
    explicit UpdaterPluginErrorEvent(const QString& text);
    /// Shares the given error.
    explicit UpdaterPluginErrorEvent(const UpdaterError& error);
    ~UpdaterPluginErrorEvent() override;

    UpdaterError error() const;

    /// Reclassifies the event's error (see UpdaterError::reclassify()); every receiver of this
    /// event sees the new code.
    void reclassify(unsigned int category);

private:
    UpdaterError m_error;
};

} // namespace tvl::updater
