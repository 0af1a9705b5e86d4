#include "NotificationsPlugin.h"

#include <basix/Logger.h>

#include <libupdater/UpdaterPluginApi.h>

#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusPendingCallWatcher>
#include <QtDBus/QDBusPendingReply>
#include <QtDBus/QDBusServiceWatcher>
#include <QtWidgets/QSystemTrayIcon>

using namespace tvl;
using namespace tvl::updater;

namespace {

const QString Service = QStringLiteral("org.freedesktop.Notifications");
const QString Path = QStringLiteral("/org/freedesktop/Notifications");

/// How long the service may take to answer, in milliseconds.
constexpr int ProbeTimeout = 3000;
constexpr int NotifyTimeout = 5000;
/// How long a tray message stays when the notification names no time-out.
constexpr int DefaultTrayTimeout = 10000;

/// The service's reasons (1 expired, 2 dismissed by the user, 3 closed on request, 4 other).
constexpr uint ServiceExpired = 1;

QDBusMessage serviceCall(const QString& method, const QVariantList& arguments = {})
{
    QDBusMessage message = QDBusMessage::createMethodCall(Service, Path, Service, method);
    message.setArguments(arguments);
    return message;
}

QString routeName(DesktopNotification::Route route)
{
    switch (route) {
    case DesktopNotification::ServiceRoute:
        return QStringLiteral("service");
    case DesktopNotification::TrayRoute:
        return QStringLiteral("tray");
    case DesktopNotification::LogRoute:
        return QStringLiteral("log");
    case DesktopNotification::NotShown:
        break;
    }
    return QString();
}

} // namespace

NotificationCenter::NotificationCenter(UpdaterPluginApi* api, QObject* parent)
    : QObject(parent)
    , m_api(api)
{
    setObjectName(QStringLiteral("notifications"));
    m_trayExpiry.setSingleShot(true);
    connect(&m_trayExpiry, &QTimer::timeout, this, [this] {
        if (DesktopNotification* notification = m_onTray.data()) {
            m_onTray.clear();
            notification->reportClosed(IUpdaterNotification::NotificationExpired);
        }
    });

    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        serviceLost(QStringLiteral("no session bus: ") + bus.lastError().message());
        return;
    }
    bus.connect(Service, Path, Service, QStringLiteral("ActionInvoked"), this, SLOT(onActionInvoked(uint,QString)));
    bus.connect(Service, Path, Service, QStringLiteral("NotificationClosed"), this, SLOT(onNotificationClosed(uint,uint)));
    auto* watcher = new QDBusServiceWatcher(Service, bus, QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString&, const QString& oldOwner, const QString& newOwner) {
                if (!oldOwner.isEmpty()) {
                    // The notifications of the service that left went with it.
                    const auto shown = std::exchange(m_onService, {});
                    for (const QPointer<DesktopNotification>& notification : shown) {
                        if (notification)
                            notification->reportClosed(IUpdaterNotification::NotificationDismissed);
                    }
                }
                if (newOwner.isEmpty())
                    serviceLost(QStringLiteral("the service left the session bus"));
                else
                    probe();
            });
    probe();
}

NotificationCenter::~NotificationCenter()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    for (auto it = m_onService.cbegin(); it != m_onService.cend(); ++it)
        bus.send(serviceCall(QStringLiteral("CloseNotification"), {it.key()}));
    for (const QPointer<DesktopNotification>& notification : std::as_const(m_created))
        delete notification.data();
}

IUpdaterNotification* NotificationCenter::createNotification(QObject* parent)
{
    auto* notification = new DesktopNotification(this, parent);
    m_created.removeAll(nullptr);
    m_created.append(notification);
    return notification;
}

QString NotificationCenter::route() const
{
    switch (m_state) {
    case ServiceAvailable:
        return routeName(DesktopNotification::ServiceRoute);
    case ServiceUnavailable:
        return routeName(fallbackRoute());
    case ServiceUnknown:
        break;
    }
    return QString();
}

void NotificationCenter::show(DesktopNotification* notification)
{
    switch (m_state) {
    case ServiceUnknown:
        if (!m_pending.contains(notification))
            m_pending.append(notification);
        break;
    case ServiceAvailable:
        notify(notification);
        break;
    case ServiceUnavailable:
        showElsewhere(notification);
        break;
    }
}

void NotificationCenter::close(DesktopNotification* notification)
{
    DesktopNotification::Delivery& delivery = notification->delivery;
    switch (delivery.route) {
    case DesktopNotification::NotShown:
        m_pending.removeAll(notification);
        break;
    case DesktopNotification::ServiceRoute:
        // The service answers with NotificationClosed.
        if (delivery.awaitingServer)
            delivery.closeWanted = true;
        else
            sendClose(delivery.serverId);
        break;
    case DesktopNotification::TrayRoute:
        if (m_onTray == notification) {
            m_onTray.clear();
            m_trayExpiry.stop();
            // An empty message takes the tray's balloon away.
            if (QSystemTrayIcon* tray = m_trayConnected.data())
                tray->showMessage(QString(), QString());
        }
        notification->reportClosed(IUpdaterNotification::NotificationDismissed);
        break;
    case DesktopNotification::LogRoute:
        notification->reportClosed(IUpdaterNotification::NotificationDismissed);
        break;
    }
}

void NotificationCenter::settle()
{
    m_settled = true;
    if (m_state != ServiceUnknown)
        tell(m_state == ServiceAvailable ? DesktopNotification::ServiceRoute : fallbackRoute());
}

void NotificationCenter::objectAdded(QObject* object)
{
    if (m_settled && m_state == ServiceUnavailable && qobject_cast<QSystemTrayIcon*>(object))
        tell(fallbackRoute());
}

void NotificationCenter::probe()
{
    if (m_probing)
        return;
    m_probing = true;
    QDBusConnection bus = QDBusConnection::sessionBus();
    auto* information = new QDBusPendingCallWatcher(bus.asyncCall(serviceCall(QStringLiteral("GetServerInformation")), ProbeTimeout), this);
    connect(information, &QDBusPendingCallWatcher::finished, this, [this, bus](QDBusPendingCallWatcher* call) mutable {
        call->deleteLater();
        const QDBusPendingReply<QString, QString, QString, QString> server = *call;
        if (server.isError()) {
            m_probing = false;
            serviceLost(server.error().message());
            return;
        }
        // Name, version and vendor.
        const QString description = QStringLiteral("%1 %2 (%3)").arg(server.argumentAt<0>(), server.argumentAt<2>(), server.argumentAt<1>());
        auto* capabilities = new QDBusPendingCallWatcher(bus.asyncCall(serviceCall(QStringLiteral("GetCapabilities")), ProbeTimeout), this);
        connect(capabilities, &QDBusPendingCallWatcher::finished, this, [this, description](QDBusPendingCallWatcher* call) {
            call->deleteLater();
            m_probing = false;
            const QDBusPendingReply<QStringList> reply = *call;
            if (reply.isError())
                serviceLost(reply.error().message());
            else
                serviceFound(description, reply.value());
        });
    });
}

void NotificationCenter::serviceFound(const QString& description, const QStringList& capabilities)
{
    m_state = ServiceAvailable;
    m_serviceDescription = description;
    m_capabilities = capabilities;
    TVL_LOG(Logger::Debug) << "Notification service" << description << "can do" << capabilities.join(QStringLiteral(", "));
    if (m_settled)
        tell(DesktopNotification::ServiceRoute);
    showPending();
}

void NotificationCenter::serviceLost(const QString& why)
{
    m_state = ServiceUnavailable;
    TVL_LOG(Logger::Debug) << "No notification service:" << why;
    if (m_settled)
        tell(fallbackRoute());
    showPending();
}

void NotificationCenter::showPending()
{
    for (const QPointer<DesktopNotification>& notification : std::exchange(m_pending, {})) {
        if (notification)
            show(notification);
    }
}

void NotificationCenter::notify(DesktopNotification* notification)
{
    DesktopNotification::Delivery& delivery = notification->delivery;
    if (delivery.route == DesktopNotification::ServiceRoute && delivery.awaitingServer) {
        // Shown again before the service gave its id: sent again, as a replacement, once it did.
        delivery.showAgain = true;
        return;
    }
    tell(DesktopNotification::ServiceRoute);
    const uint replaces = delivery.route == DesktopNotification::ServiceRoute ? delivery.serverId : 0;
    const QDBusMessage message = serviceCall(QStringLiteral("Notify"),
                                             notification->notifyArguments(replaces, m_capabilities.contains(QStringLiteral("action-icons"))));
    auto* call = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(message, NotifyTimeout), this);
    delivery.route = DesktopNotification::ServiceRoute;
    delivery.awaitingServer = true;
    connect(call, &QDBusPendingCallWatcher::finished, this,
            [this, notification = QPointer<DesktopNotification>(notification)](QDBusPendingCallWatcher* call) {
                notifyAnswered(call, notification);
            });
}

void NotificationCenter::notifyAnswered(QDBusPendingCallWatcher* call, const QPointer<DesktopNotification>& notification)
{
    call->deleteLater();
    const QDBusPendingReply<uint> reply = *call;
    if (!notification)
        return;
    DesktopNotification::Delivery& delivery = notification->delivery;
    delivery.awaitingServer = false;
    if (reply.isError()) {
        TVL_LOG(Logger::Warning) << "The notification service did not take a notification:" << reply.error().name()
                                 << reply.error().message();
        delivery = DesktopNotification::Delivery();
        serviceLost(reply.error().message());
        showElsewhere(notification);
        return;
    }
    m_onService.remove(delivery.serverId);
    delivery.serverId = reply.value();
    m_onService.insert(delivery.serverId, notification);
    if (std::exchange(delivery.closeWanted, false))
        sendClose(delivery.serverId);
    else if (std::exchange(delivery.showAgain, false))
        notify(notification);
}

void NotificationCenter::sendClose(uint serverId)
{
    QDBusConnection::sessionBus().send(serviceCall(QStringLiteral("CloseNotification"), {serverId}));
}

void NotificationCenter::showElsewhere(DesktopNotification* notification)
{
    const DesktopNotification::Route route = fallbackRoute();
    tell(route);
    if (route == DesktopNotification::TrayRoute) {
        showOnTray(usableTray(), notification);
        return;
    }
    TVL_LOG(Logger::Notice) << "Notification:" << notification->title() << "-" << notification->text();
    notification->delivery.route = DesktopNotification::LogRoute;
    // Written is as good as seen: the notification is over on the next turn of the event loop.
    QTimer::singleShot(0, notification, [notification] {
        if (notification->delivery.route == DesktopNotification::LogRoute)
            notification->reportClosed(IUpdaterNotification::NotificationExpired);
    });
}

void NotificationCenter::showOnTray(QSystemTrayIcon* tray, DesktopNotification* notification)
{
    if (m_trayConnected != tray) {
        if (m_trayConnected)
            disconnect(m_trayConnected, nullptr, this, nullptr);
        connect(tray, &QSystemTrayIcon::messageClicked, this, &NotificationCenter::onTrayMessageClicked);
        m_trayConnected = tray;
    }
    // The tray shows one message at a time: a new one takes the place of the last.
    if (DesktopNotification* replaced = m_onTray.data(); replaced && replaced != notification)
        replaced->reportClosed(IUpdaterNotification::NotificationDismissed);

    const int timeout = notification->timeout() < 0 ? DefaultTrayTimeout : notification->timeout();
    if (notification->icon().isNull()) {
        const bool urgent = notification->hint(IUpdaterNotification::UpdaterNotificationHintPriority).toInt()
            >= IUpdaterNotification::UrgentPriority;
        tray->showMessage(notification->title(), notification->text(),
                          urgent ? QSystemTrayIcon::Warning : QSystemTrayIcon::Information, timeout);
    } else {
        tray->showMessage(notification->title(), notification->text(), notification->icon(), timeout);
    }
    notification->delivery.route = DesktopNotification::TrayRoute;
    m_onTray = notification;
    if (timeout > 0)
        m_trayExpiry.start(timeout);
    else
        m_trayExpiry.stop();
}

QSystemTrayIcon* NotificationCenter::usableTray() const
{
    auto* tray = m_api->getObject<QSystemTrayIcon>();
    return tray && tray->isVisible() && QSystemTrayIcon::isSystemTrayAvailable() ? tray : nullptr;
}

DesktopNotification::Route NotificationCenter::fallbackRoute() const
{
    return usableTray() ? DesktopNotification::TrayRoute : DesktopNotification::LogRoute;
}

void NotificationCenter::tell(DesktopNotification::Route route)
{
    if (route == m_told)
        return;
    m_told = route;
    switch (route) {
    case DesktopNotification::ServiceRoute:
        TVL_LOG(Logger::Notice) << "Notifications go to the desktop's notification service," << m_serviceDescription;
        break;
    case DesktopNotification::TrayRoute:
        TVL_LOG(Logger::Notice) << "No desktop notification service: notifications are shown as messages of the tray icon";
        break;
    case DesktopNotification::LogRoute:
        TVL_LOG(Logger::Notice) << "No desktop notification service and no tray icon: notifications are written to the log";
        break;
    case DesktopNotification::NotShown:
        break;
    }
}

void NotificationCenter::onActionInvoked(uint id, const QString&)
{
    if (DesktopNotification* notification = m_onService.value(id).data())
        notification->reportClicked();
}

void NotificationCenter::onNotificationClosed(uint id, uint reason)
{
    if (DesktopNotification* notification = m_onService.take(id).data())
        notification->reportClosed(reason == ServiceExpired ? IUpdaterNotification::NotificationExpired
                                                            : IUpdaterNotification::NotificationDismissed);
}

void NotificationCenter::onTrayMessageClicked()
{
    if (DesktopNotification* notification = m_onTray.data()) {
        m_onTray.clear();
        m_trayExpiry.stop();
        notification->reportClicked();
        notification->reportClosed(IUpdaterNotification::NotificationClicked);
    }
}

bool NotificationsPlugin::init()
{
    m_center = new NotificationCenter(api(), this);
    api()->addObject(m_center);
    return true;
}

void NotificationsPlugin::objectAdded(QObject* object)
{
    if (m_center)
        m_center->objectAdded(object);
}

void NotificationsPlugin::updaterEvent(UpdaterPluginEventPtr event)
{
    if (event && event->type() == UpdaterPluginEvent::AllPluginsLoadedEvent)
        m_center->settle();
}
