#pragma once

#include "DesktopNotification.h"

#include <libupdater/UpdaterPlugin.h>

#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QPointer>
#include <QtCore/QStringList>
#include <QtCore/QTimer>

QT_BEGIN_NAMESPACE
class QDBusMessage;
class QDBusPendingCallWatcher;
class QSystemTrayIcon;
QT_END_NAMESPACE

namespace tvl::updater {
class UpdaterPluginApi;
}

/**
 * Makes notifications and shows them: through the desktop's notification service
 * (org.freedesktop.Notifications on the session bus) when there is one, else as a message of
 * the tray icon that another plugin registered (a QSystemTrayIcon), else as a log line. It
 * says in the log (level 3) which of the three it uses, when it is first settled and
 * whenever that changes (the service comes or goes, a tray icon appears).
 *
 * Registered with the plugin API as the object "notifications". A plugin that links only the
 * launcher library makes a notification like this:
 *
 *     tvl::updater::IUpdaterNotification* notification = nullptr;
 *     for (const QPointer<QObject>& object : api()->objects()) {
 *         if (object && object->objectName() == QLatin1String("notifications"))
 *             QMetaObject::invokeMethod(object, "createNotification",
 *                                       Q_RETURN_ARG(tvl::updater::IUpdaterNotification*, notification),
 *                                       Q_ARG(QObject*, this));
 *     }
 *
 * The notification belongs to the parent given, but not beyond this plugin: the ones still
 * there when it is unloaded are deleted with it, since their code goes with it.
 */
class NotificationCenter : public QObject
{
    Q_OBJECT

public:
    NotificationCenter(tvl::updater::UpdaterPluginApi* api, QObject* parent);
    ~NotificationCenter() override;

    /// A new notification owned by `parent`; set it up and show() it.
    Q_INVOKABLE tvl::updater::IUpdaterNotification* createNotification(QObject* parent = nullptr);
    /// Where notifications go now: "service", "tray" or "log"; empty while that is not known yet.
    Q_INVOKABLE QString route() const;

    void show(DesktopNotification* notification);
    void close(DesktopNotification* notification);

    /// From now on the choice of route is told in the log: every plugin is loaded.
    void settle();
    /// Another plugin registered `object` (a tray icon, maybe).
    void objectAdded(QObject* object);

private:
    enum ServiceState { ServiceUnknown, ServiceAvailable, ServiceUnavailable };

    void probe();
    void serviceFound(const QString& description, const QStringList& capabilities);
    void serviceLost(const QString& why);
    void showPending();
    void notify(DesktopNotification* notification);
    void notifyAnswered(QDBusPendingCallWatcher* call, const QPointer<DesktopNotification>& notification);
    void sendClose(uint serverId);
    void showElsewhere(DesktopNotification* notification);
    void showOnTray(QSystemTrayIcon* tray, DesktopNotification* notification);
    QSystemTrayIcon* usableTray() const;
    DesktopNotification::Route fallbackRoute() const;
    void tell(DesktopNotification::Route route);

    Q_SLOT void onActionInvoked(uint id, const QString& actionKey);
    Q_SLOT void onNotificationClosed(uint id, uint reason);
    void onTrayMessageClicked();

    tvl::updater::UpdaterPluginApi* const m_api;
    ServiceState m_state = ServiceUnknown;
    QString m_serviceDescription;
    QStringList m_capabilities;
    bool m_probing = false;
    bool m_settled = false;
    DesktopNotification::Route m_told = DesktopNotification::NotShown;
    QList<QPointer<DesktopNotification>> m_created;
    /// Shown before the route was known.
    QList<QPointer<DesktopNotification>> m_pending;
    /// On the service, by the service's id.
    QMap<uint, QPointer<DesktopNotification>> m_onService;
    QPointer<DesktopNotification> m_onTray;
    QTimer m_trayExpiry;
    QPointer<QSystemTrayIcon> m_trayConnected;
};

class NotificationsPlugin : public tvl::updater::UpdaterPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID UPDATER_PLUGIN_IID)

public:
    bool init() override;
    void objectAdded(QObject* object) override;
    void updaterEvent(tvl::updater::UpdaterPluginEventPtr event) override;

private:
    NotificationCenter* m_center = nullptr;
};
