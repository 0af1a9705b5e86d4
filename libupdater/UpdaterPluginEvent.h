#pragma once

#include <libupdater/LibupdaterExport.h>

#include <QtCore/QMetaType>
#include <QtCore/QSharedPointer>

namespace tvl::updater {

/**
 * An event that the host and the plugins post to every loaded plugin through the plugin API.
 *
 * Events are created on the heap by the poster and shared among the receivers as an
 * UpdaterPluginEventPtr; a receiver that handles one calls accept(), and the poster reads
 * accepted() once every plugin has seen it. Receivers find out what they hold from type() and
 * then cast to the class of that type.
 */
class LIBUPDATER_EXPORT UpdaterPluginEvent
{
public:
    enum EventType {
        /// No particular kind; never posted by the library.
        UnknownEvent = 0,
        /// An error for the error manager (UpdaterPluginErrorEvent).
        ErrorEvent = 1,
        /// A plugin tells the others about something that happened (a message for them to
        /// show or record); plugins define the class that carries it.
        MessageEvent = 2,
        /// A plugin reports progress of a lengthy task of its own; plugins define the class.
        ProgressEvent = 3,
        /// Any other kind agreed between plugins; receivers tell such events apart by their class.
        CustomEvent = 4,
        /// The user clicked a custom link (UpdaterPluginCustomUrlClickedEvent).
        CustomUrlClickedEvent = 5,
        /// A question for the user (UpdaterPluginAskToUserEvent).
        AskToUserEvent = 6,
        /// Every plugin has been loaded (AllPluginsLoadedEventUpdaterPluginEvent).
        AllPluginsLoadedEvent = 7,
        /// The last window was closed; accepting the event keeps the application running
        /// (AboutToQuitUpdaterPluginEvent).
        AboutToQuit = 8
    };

    explicit UpdaterPluginEvent(EventType type);
    virtual ~UpdaterPluginEvent();

    EventType type() const;

    /// Marks the event as handled; it cannot be undone.
    void accept();
    bool accepted() const;

private:
    Q_DISABLE_COPY_MOVE(UpdaterPluginEvent)

    EventType m_type;
    bool m_accepted = false;
};

using UpdaterPluginEventPtr = QSharedPointer<UpdaterPluginEvent>;

/**
 * Registers "tvl::updater::UpdaterPluginEvent*" and "tvl::updater::UpdaterPluginEventPtr" with
 * the meta-type system, so that events travel through queued connections and invokeMethod().
 * Cheap after the first call.
 */
LIBUPDATER_EXPORT void registerPluginEventMetaTypes();

} // namespace tvl::updater

/**
 * Declares an event class that carries nothing but its type:
 *
 *     TVL_UPDATER_DECLARE_PLUGIN_EVENT(MYPLUGIN_EXPORT, GameStartedEvent, tvl::updater::UpdaterPluginEvent::CustomEvent)
 *
 * in a header, and TVL_UPDATER_DEFINE_PLUGIN_EVENT(GameStartedEvent) in exactly one source file,
 * which holds the class's virtual table so that casts work across shared libraries.
 */
#define TVL_UPDATER_DECLARE_PLUGIN_EVENT(EXPORT, NAME, TYPE)          \
    class EXPORT NAME : public ::tvl::updater::UpdaterPluginEvent      \
    {                                                                  \
    public:                                                            \
        NAME()                                                         \
            : ::tvl::updater::UpdaterPluginEvent(TYPE)                 \
        {                                                              \
        }                                                              \
        ~NAME() override;                                              \
    };

#define TVL_UPDATER_DEFINE_PLUGIN_EVENT(NAME) NAME::~NAME() = default;

Q_DECLARE_METATYPE(tvl::updater::UpdaterPluginEvent*)
Q_DECLARE_METATYPE(tvl::updater::UpdaterPluginEventPtr)
