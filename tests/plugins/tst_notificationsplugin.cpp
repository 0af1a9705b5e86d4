// The notifications plugin in a real plugin host, on a session bus of the test's own (dbus-daemon): against a
// notification service that the test registers there, without one (the log), and under a real X server with a
// real tray host (Xvfb and trayer), where this executable runs itself again on that display.
#include <libupdater/IUpdaterNotification.h>

#include <DesktopSession.h>
#include <LogCapture.h>
#include "BundledPlugins.h"

#include <QtDBus/QDBusArgument>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusConnectionInterface>
#include <QtTest/QSignalSpy>
#include <QtTest/QTest>
#include <QtWidgets/QApplication>
#include <QtWidgets/QLabel>
#include <QtWidgets/QSystemTrayIcon>

#include <cstdio>

using namespace tvl::updater;
using Notification = IUpdaterNotification;

namespace {

const QString ServiceName = "org.freedesktop.Notifications";
/// Set in the run of this executable that plays a case under the X server.
constexpr char OnDisplay[] = "TEST_ON_DISPLAY";

/// org.freedesktop.Notifications as a desktop offers it: it records the calls and emits what the test asks.
class NotificationServer : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    struct Call
    {
        QString appName;
        uint replacesId;
        QString appIcon, summary, body;
        QStringList actions;
        QVariantMap hints;
        int timeout;
    };
    QList<Call> calls;
    QList<uint> closeRequests;
    QStringList capabilities{"body", "actions"};
    uint lastId = 40;

public Q_SLOTS:
    uint Notify(const QString& appName, uint replacesId, const QString& appIcon, const QString& summary, const QString& body,
                const QStringList& actions, const QVariantMap& hints, int timeout)
    {
        calls.append({appName, replacesId, appIcon, summary, body, actions, hints, timeout});
        return replacesId ? replacesId : ++lastId;
    }
    void CloseNotification(uint id)
    {
        closeRequests.append(id);
        Q_EMIT NotificationClosed(id, 3);
    }
    QStringList GetCapabilities() { return capabilities; }
    QString GetServerInformation(QString& vendor, QString& version, QString& specVersion)
    {
        vendor = "Tests";
        version = "1.0";
        specVersion = "1.2";
        return "fake";
    }

Q_SIGNALS:
    void NotificationClosed(uint id, uint reason);
    void ActionInvoked(uint id, const QString& actionKey);
};

/// The server on a connection of its own to the test's bus, so that the plugin reaches it as another program.
struct Desktop
{
    QDBusConnection connection;
    NotificationServer server;

    explicit Desktop(const QString& address) : connection(QDBusConnection::connectToBus(address, "desktop"))
    {
        connection.registerObject("/org/freedesktop/Notifications", &server,
                                  QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals);
    }
    ~Desktop()
    {
        leave();
        connection.unregisterObject("/org/freedesktop/Notifications");
    }
    bool offer() { return connection.registerService(ServiceName); }
    void leave() { connection.unregisterService(ServiceName); }
};

/// A plugin host with the notifications plugin; every notification is made as a plugin linking only the library does.
struct NotificationsHost : Host
{
    QObject* center = nullptr;

    bool start()
    {
        addBundled(dir, "notifications");
        if (!load({}))
            return false;
        for (const QPointer<QObject>& object : manager->api()->objects()) {
            if (object && object->objectName() == "notifications")
                center = object;
        }
        return center;
    }

    Notification* create(const QString& title, const QString& text, QObject* parent)
    {
        Notification* notification = nullptr;
        QMetaObject::invokeMethod(center, "createNotification", Q_RETURN_ARG(tvl::updater::IUpdaterNotification*, notification),
                                  Q_ARG(QObject*, parent));
        if (notification) {
            notification->setTitle(title);
            notification->setText(text);
        }
        return notification;
    }

    QString route() const
    {
        QString route;
        QMetaObject::invokeMethod(center, "route", Q_RETURN_ARG(QString, route));
        return route;
    }
};

/// What a notification emitted: "clicked" and "closed <reason>".
struct Signals : QObject
{
    explicit Signals(Notification* notification)
    {
        connect(notification, &Notification::clicked, this, [this] { seen.append("clicked"); });
        connect(notification, &Notification::closed, this,
                [this](Notification::NotificationClosedReason reason) { seen.append(QString("closed %1").arg(int(reason))); });
    }
    QStringList seen;
};

QString closedBecause(Notification::NotificationClosedReason reason)
{
    return QString("closed %1").arg(int(reason));
}

QIcon redSquare()
{
    QPixmap pixmap(16, 16);
    pixmap.fill(Qt::red);
    return QIcon(pixmap);
}

/// The image-data hint as "<width>x<height> stride <bytes> alpha <0|1> <bits>x<channels> first <r,g,b,a>".
QString describeImage(const QVariant& hint)
{
    if (!hint.isValid())
        return QString();
    const QDBusArgument argument = hint.value<QDBusArgument>();
    int width = 0, height = 0, stride = 0, bits = 0, channels = 0;
    bool alpha = false;
    QByteArray pixels;
    argument.beginStructure();
    argument >> width >> height >> stride >> alpha >> bits >> channels >> pixels;
    argument.endStructure();
    const auto byte = [&pixels](int i) { return QString::number(uchar(pixels.at(i))); };
    return QString("%1x%2 stride %3 alpha %4 %5x%6 first %7,%8,%9,%10 size %11")
        .arg(width).arg(height).arg(stride).arg(alpha).arg(bits).arg(channels)
        .arg(byte(0), byte(1), byte(2), byte(3)).arg(pixels.size());
}

} // namespace

class TestNotificationsPlugin : public QObject
{
    Q_OBJECT

    testsupport::SessionBus m_bus;
    std::unique_ptr<Desktop> m_desktop;
    LogCapture m_log;
    QTemporaryDir m_icons;

    /// The plugin's notices about where notifications go, since the last call.
    QStringList routeNotices()
    {
        return m_log.lines("plugins/notifications/NotificationsPlugin").filter(QRegularExpression("^3 (No desktop|Notifications go)"));
    }

    /// Offers the service and starts `host`; true once the plugin took the service.
    bool startOnService(NotificationsHost& host)
    {
        return m_desktop->offer() && host.start() && QTest::qWaitFor([&host] { return host.route() == "service"; });
    }

    /// A notification shown on the service, once the service gave its id; 0 if it did not.
    uint showOnService(Notification* notification)
    {
        const qsizetype before = m_desktop->server.calls.size();
        notification->show();
        // What the service sends later reaches the plugin after this answer.
        return QTest::qWaitFor([&] { return m_desktop->server.calls.size() > before; }) ? m_desktop->server.lastId : 0;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(m_bus.start(), qPrintable(m_bus.error()));
        // Before anything in this process connects to the session bus.
        qputenv("DBUS_SESSION_BUS_ADDRESS", m_bus.address().toUtf8());
        m_desktop = std::make_unique<Desktop>(m_bus.address());
        QVERIFY(m_desktop->connection.isConnected());

        // An icon theme with the two icons that the cases name.
        testsupport::writeFile(m_icons.filePath("test/index.theme"), "[Icon Theme]\nName=test\nDirectories=16\n\n[16]\nSize=16\n");
        QVERIFY(QDir().mkpath(m_icons.filePath("test/16")));
        for (const char* name : {"dialog-information", "media-playback-start"})
            QVERIFY(redSquare().pixmap(16).save(m_icons.filePath(QString("test/16/%1.png").arg(name))));
        QIcon::setThemeSearchPaths({m_icons.path()});
        QIcon::setThemeName("test");
    }

    void init()
    {
        m_desktop->server.calls.clear();
        m_desktop->server.closeRequests.clear();
        m_desktop->server.capabilities = {"body", "actions"};
        m_log.take();
    }

    void cleanup()
    {
        m_desktop->leave();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    void cleanupTestCase() { m_desktop.reset(); }

    void notifyArguments_data()
    {
        QTest::addColumn<QVariantMap>("hints");      // by the name of NotificationHint's keys
        QTest::addColumn<QString>("icon");           // "", "theme" or "picture"
        QTest::addColumn<QStringList>("capabilities");
        QTest::addColumn<QStringList>("actions");
        QTest::addColumn<QVariantMap>("sentHints");  // image-data described by describeImage()
        QTest::addColumn<int>("timeout");

        const QStringList plain{"body", "actions"};
        QTest::newRow("no hints") << QVariantMap() << "" << plain << QStringList{"default", "Open"}
                                  << QVariantMap{{"urgency", 1}} << -1;
        QTest::newRow("urgent, named, timed, with an action's text")
            << QVariantMap{{"UpdaterNotificationHintPriority", int(Notification::UrgentPriority)},
                           {"UpdaterNotificationHintNotificationName", "launcher.update.failed"},
                           {"UpdaterNotificationHintTimeout", 5000}, {"UpdaterNotificationHintFallbackActionName", "Retry"}}
            << "" << plain << QStringList{"default", "Retry"}
            << QVariantMap{{"urgency", 2}, {"category", "launcher.update.failed"}} << 5000;
        QTest::newRow("low priority, never expiring")
            << QVariantMap{{"UpdaterNotificationHintPriority", int(Notification::LowPriority)}, {"UpdaterNotificationHintTimeout", 0}}
            << "" << plain << QStringList{"default", "Open"} << QVariantMap{{"urgency", 0}} << 0;
        QTest::newRow("an icon of the theme: its name")
            << QVariantMap() << "theme" << plain << QStringList{"default", "Open"}
            << QVariantMap{{"urgency", 1}, {"image-path", "dialog-information"}} << -1;
        QTest::newRow("an icon of pixels: the pixels")
            << QVariantMap() << "picture" << plain << QStringList{"default", "Open"}
            << QVariantMap{{"urgency", 1}, {"image-data", "16x16 stride 64 alpha 1 8x4 first 255,0,0,255 size 1024"}} << -1;
        QTest::newRow("an action icon where the service draws them")
            << QVariantMap{{"UpdaterNotificationHintActionIcon", QVariant::fromValue(QIcon::fromTheme("media-playback-start"))}}
            << "" << QStringList{"body", "actions", "action-icons"} << QStringList{"media-playback-start", "Open"}
            << QVariantMap{{"urgency", 1}, {"action-icons", true}} << -1;
        QTest::newRow("an action icon where the service does not draw them")
            << QVariantMap{{"UpdaterNotificationHintActionIcon", QVariant::fromValue(QIcon::fromTheme("media-playback-start"))}}
            << "" << plain << QStringList{"default", "Open"} << QVariantMap{{"urgency", 1}} << -1;
    }

    void notifyArguments()
    {
        QFETCH(QVariantMap, hints);
        QFETCH(QString, icon);
        QFETCH(QStringList, capabilities);
        m_desktop->server.capabilities = capabilities;
        NotificationsHost host;
        QVERIFY(startOnService(host));

        Notification* notification = host.create("Update finished", "Tarvel Racing 1.2 is ready", this);
        QVERIFY(notification);
        const QMetaEnum keys = QMetaEnum::fromType<Notification::NotificationHint>();
        for (auto it = hints.cbegin(); it != hints.cend(); ++it)
            notification->setHint(Notification::NotificationHint(keys.keyToValue(it.key().toLatin1().constData())), it.value());
        if (icon == "theme")
            notification->setIcon(QIcon::fromTheme("dialog-information"));
        else if (icon == "picture")
            notification->setIcon(redSquare());
        QVERIFY(showOnService(notification));

        QCOMPARE(m_desktop->server.calls.size(), 1);
        const NotificationServer::Call call = m_desktop->server.calls.first();
        QCOMPARE(QStringList({call.appName, call.appIcon, call.summary, call.body}),
                 QStringList({QGuiApplication::applicationDisplayName(), "", "Update finished", "Tarvel Racing 1.2 is ready"}));
        QCOMPARE(call.replacesId, 0u);
        QTEST(call.actions, "actions");
        QTEST(call.timeout, "timeout");
        QVariantMap sent;
        for (auto it = call.hints.cbegin(); it != call.hints.cend(); ++it)
            sent.insert(it.key(), it.key() == "image-data" ? QVariant(describeImage(it.value())) : it.value());
        QCOMPARE(sent.value("urgency").typeId(), int(QMetaType::UChar)); // a byte on the bus
        sent.insert("urgency", sent.value("urgency").toInt());
        QTEST(sent, "sentHints");
    }

    void showingAgainReplaces()
    {
        auto host = std::make_unique<NotificationsHost>();
        QVERIFY(startOnService(*host));
        Notification* notification = host->create("Downloading", "10 %", this);
        const uint id = showOnService(notification);
        QVERIFY(id);
        notification->setText("20 %");
        QVERIFY(showOnService(notification));
        // Twice before the service answers: the second is sent once the id is known, as a replacement.
        Notification* quick = host->create("Installing", "1 %", this);
        quick->show();
        quick->setText("2 %");
        quick->show();
        QTRY_COMPARE(m_desktop->server.calls.size(), 4);
        QTest::qWait(50);
        QCOMPARE(m_desktop->server.calls.size(), 4);
        QStringList sent;
        for (const NotificationServer::Call& call : m_desktop->server.calls)
            sent.append(QString("%1 %2").arg(call.replacesId).arg(call.body));
        QCOMPARE(sent, QStringList({"0 10 %", QString("%1 20 %").arg(id), "0 1 %", QString("%1 2 %").arg(id + 1)}));

        // What is still shown when the plugin goes is taken away, and the objects go with the plugin's code.
        const QPointer<Notification> gone = notification;
        host.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(!gone);
        QTRY_VERIFY(m_desktop->server.closeRequests.contains(id) && m_desktop->server.closeRequests.contains(id + 1));
    }

    void serviceSignals_data()
    {
        QTest::addColumn<QStringList>("steps"); // "action <key>", "closed <service's reason>", "close", "other"
        QTest::addColumn<QStringList>("seen");
        QTest::newRow("clicked, then closed by the service")
            << QStringList{"action default", "closed 2"} << QStringList{"clicked", closedBecause(Notification::NotificationClicked)};
        QTest::newRow("expired") << QStringList{"closed 1"} << QStringList{closedBecause(Notification::NotificationExpired)};
        QTest::newRow("dismissed by the user") << QStringList{"closed 2"} << QStringList{closedBecause(Notification::NotificationDismissed)};
        QTest::newRow("gone for another reason") << QStringList{"closed 4"} << QStringList{closedBecause(Notification::NotificationDismissed)};
        QTest::newRow("closed by the plugin that showed it") << QStringList{"close"} << QStringList{closedBecause(Notification::NotificationDismissed)};
        QTest::newRow("signals about other notifications") << QStringList{"other"} << QStringList();
    }

    void serviceSignals()
    {
        QFETCH(QStringList, steps);
        NotificationsHost host;
        QVERIFY(startOnService(host));
        Notification* notification = host.create("Update failed", "Not enough space", this);
        const Signals observed(notification);
        const uint id = showOnService(notification);
        QVERIFY(id);
        NotificationServer& server = m_desktop->server;
        for (const QString& step : steps) {
            if (step.startsWith("action "))
                Q_EMIT server.ActionInvoked(id, step.section(' ', 1));
            else if (step.startsWith("closed "))
                Q_EMIT server.NotificationClosed(id, step.section(' ', 1).toUInt());
            else if (step == "close")
                notification->close();
            else {
                Q_EMIT server.ActionInvoked(id + 1, "default");
                Q_EMIT server.NotificationClosed(id + 1, 1);
            }
        }
        QFETCH(QStringList, seen);
        QTRY_COMPARE(observed.seen, seen);
        QTest::qWait(50);
        QCOMPARE(observed.seen, seen);
        QCOMPARE(server.closeRequests.count(id), int(steps.contains("close")));
    }

    void closedBeforeTheServiceAnswered()
    {
        NotificationsHost host;
        QVERIFY(startOnService(host));
        Notification* notification = host.create("Update failed", "Not enough space", this);
        const Signals observed(notification);
        notification->show();
        notification->close();
        QTRY_COMPARE(observed.seen, QStringList{closedBecause(Notification::NotificationDismissed)});
        QCOMPARE(m_desktop->server.closeRequests.count(m_desktop->server.lastId), 1);
    }

    void serviceComesAndGoes()
    {
        NotificationsHost host;
        QVERIFY(host.start());
        QTRY_COMPARE(host.route(), "log");
        QCOMPARE(routeNotices(), QStringList{"3 No desktop notification service and no tray icon: notifications are written to the log"});

        Notification* first = host.create("Update finished", "Ready to play", this);
        const Signals firstSeen(first);
        first->show();
        QTRY_COMPARE(firstSeen.seen, QStringList{closedBecause(Notification::NotificationExpired)});
        QVERIFY(m_log.lines("plugins/notifications/NotificationsPlugin").contains("3 Notification: Update finished - Ready to play"));

        // The service arrives: the plugin sees it register and takes it from then on.
        QVERIFY(m_desktop->offer());
        QTRY_COMPARE(host.route(), "service");
        QCOMPARE(routeNotices(), QStringList{"3 Notifications go to the desktop's notification service, fake 1.0 (Tests)"});
        Notification* second = host.create("Update finished", "Ready to play", this);
        const Signals secondSeen(second);
        QVERIFY(showOnService(second));

        // It leaves: what it showed is gone, and the log takes over again.
        m_desktop->leave();
        QTRY_COMPARE(host.route(), "log");
        QTRY_COMPARE(secondSeen.seen, QStringList{closedBecause(Notification::NotificationDismissed)});
        QCOMPARE(routeNotices(), QStringList{"3 No desktop notification service and no tray icon: notifications are written to the log"});
    }

    void logWithoutBus()
    {
        // A launcher where no session bus can be reached.
        const auto run = testsupport::runScenario("no-bus", {}, {"DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent/bus"});
        QVERIFY2(run.exitedWith(0), (run.out + run.err).constData());
        QCOMPARE(QString::fromUtf8(run.out).split('\n', Qt::SkipEmptyParts),
                 QStringList({"log", "3 No desktop notification service and no tray icon: notifications are written to the log",
                              "3 Notification: Done - first", "3 Notification: Done - second",
                              closedBecause(Notification::NotificationExpired), closedBecause(Notification::NotificationExpired)}));
    }

    void trayWithoutService()
    {
        if (qEnvironmentVariableIsEmpty(OnDisplay)) {
            testsupport::VirtualDisplay display;
            if (!display.start() || !display.startTray())
                QSKIP(qPrintable("no X server with a tray here: " + display.error()));
            // This very case again, in a run of this executable on that display.
            const auto run = testsupport::runProcess(QCoreApplication::applicationFilePath(), {"trayWithoutService"},
                                                     {"DISPLAY=" + display.display(), "QT_QPA_PLATFORM=xcb",
                                                      QString(OnDisplay) + "=1"});
            QVERIFY2(run.exitedWith(0), (run.out + run.err).constData());
            QVERIFY2(run.out.contains("PASS   : TestNotificationsPlugin::trayWithoutService()"), run.out.constData());
            return;
        }

        NotificationsHost host;
        QVERIFY(host.start());
        QTRY_COMPARE(host.route(), "log");
        // The tray icon that the window plugin offers, on trayer's tray.
        QTRY_VERIFY_WITH_TIMEOUT(QSystemTrayIcon::isSystemTrayAvailable(), 10000);
        auto* tray = new QSystemTrayIcon(redSquare()); // registered objects belong to the API
        tray->show();
        QTRY_VERIFY(!tray->geometry().isEmpty()); // in the tray
        host.manager->api()->addObject(tray);
        QCOMPARE(host.route(), "tray");
        QCOMPARE(routeNotices(), QStringList({"3 No desktop notification service and no tray icon: notifications are written to the log",
                                              "3 No desktop notification service: notifications are shown as messages of the tray icon"}));

        const auto balloon = [] {
            for (QWidget* widget : QApplication::topLevelWidgets()) {
                if (widget->isVisible() && QByteArray(widget->metaObject()->className()) == "QBalloonTip")
                    return widget;
            }
            return static_cast<QWidget*>(nullptr);
        };
        const auto texts = [](QWidget* widget) {
            QStringList texts;
            for (const QLabel* label : widget->findChildren<QLabel*>())
                texts.append(label->text());
            return texts;
        };

        Notification* first = host.create("Update finished", "Ready to play", this);
        const Signals firstSeen(first);
        first->show();
        QTRY_VERIFY(balloon());
        QVERIFY2(texts(balloon()).contains("Update finished") && texts(balloon()).contains("Ready to play"),
                 qPrintable(texts(balloon()).join('|')));
        QTest::mouseClick(balloon(), Qt::LeftButton);
        QTRY_COMPARE(firstSeen.seen, QStringList({"clicked", closedBecause(Notification::NotificationClicked)}));

        // One message at a time: the next takes the place of the last, which is dismissed; the next expires.
        Notification* second = host.create("Downloading", "10 %", this);
        Notification* third = host.create("Downloading", "20 %", this);
        third->setHint(Notification::UpdaterNotificationHintTimeout, 300);
        const Signals secondSeen(second), thirdSeen(third);
        second->show();
        QTRY_VERIFY(balloon() && texts(balloon()).contains("10 %"));
        third->show();
        QTRY_VERIFY(balloon() && texts(balloon()).contains("20 %"));
        QCOMPARE(secondSeen.seen, QStringList{closedBecause(Notification::NotificationDismissed)});
        QTRY_COMPARE(thirdSeen.seen, QStringList{closedBecause(Notification::NotificationExpired)});
        QTRY_VERIFY(!balloon());
    }
};

/// The child of logWithoutBus(): two notifications where no session bus is; prints the route, the plugin's notices
/// and what the notifications emitted.
int noBusScenario(const QByteArray&, int argc, char** argv)
{
    QApplication application(argc, argv);
    LogCapture log;
    NotificationsHost host;
    if (!host.start())
        return 3;
    QStringList seen;
    for (const char* text : {"first", "second"}) {
        Notification* notification = host.create("Done", text, &application);
        QObject::connect(notification, &Notification::closed, &application,
                         [&seen](Notification::NotificationClosedReason reason) { seen.append(closedBecause(reason)); });
        notification->show();
    }
    if (!QTest::qWaitFor([&seen] { return seen.size() == 2; }))
        return 4;
    const QStringList notices = log.lines("plugins/notifications/NotificationsPlugin").filter(QRegularExpression("^3 "));
    std::printf("%s\n%s\n%s\n", qPrintable(host.route()), qPrintable(notices.join('\n')), qPrintable(seen.join('\n')));
    return 0;
}

TEST_MAIN_WITH_SCENARIOS(TestNotificationsPlugin, QApplication, noBusScenario)
#include "tst_notificationsplugin.moc"
