#include <libupdater/ISettingsManager.h>
#include <libupdater/ISystemSettingsProvider.h>
#include <libupdater/UpdaterPlugin.h>
#include <libupdater/UpdaterPluginApi.h>
#include <libupdater/UpdaterPluginsManager.h>

#include "fixtures/PluginScenario.h"

#include <QtCore/QProcess>
#include <QtCore/QStandardPaths>
#include <QtGui/QIcon>
#include <QtTest/QSignalSpy>
#include <QtTest/QTest>
#include <QtWidgets/QApplication>
#include <QtWidgets/QWidget>

#include <cstdio>

using namespace tvl::updater;

namespace {

/// A settings manager that answers from a map and notes every call.
class FakeSettings : public ISettingsManager
{
    Q_OBJECT

public:
    QVariant getSetting(const QString& key, SettingsAttributes attributes) const override
    {
        calls << QStringLiteral("get %1 %2").arg(key).arg(int(attributes), 0, 16);
        return values.value(key);
    }
    void setSetting(const QString& key, const QVariant& value, bool persist, bool notify) override
    {
        calls << QStringLiteral("set %1 %2 %3 %4").arg(key, value.toString()).arg(persist).arg(notify);
    }
    void save() override {}
    QStringList keys(SettingsAttributes) const override { return values.keys(); }
    void clear() override {}

    QVariantMap values;
    mutable QStringList calls;
};

class FakeSystemSettings : public QObject, public ISystemSettingsProvider
{
    Q_OBJECT
    Q_INTERFACES(tvl::updater::ISystemSettingsProvider)

public:
    QVariant value(const QString& key) const override { return values.value(key); }
    void setValue(const QString& key, const QVariant& value) override
    {
        calls << QStringLiteral("set %1 %2").arg(key, value.toString());
    }

    QVariantMap values;
    QStringList calls;
};

class TrackedEvent : public UpdaterPluginEvent
{
public:
    explicit TrackedEvent(bool* deleted)
        : UpdaterPluginEvent(CustomEvent)
        , m_deleted(deleted)
    {
    }
    ~TrackedEvent() override { *m_deleted = true; }

private:
    bool* m_deleted;
};

UpdaterPluginEventPtr makeEvent(bool accepted = false)
{
    UpdaterPluginEventPtr event(new UpdaterPluginEvent(UpdaterPluginEvent::CustomEvent));
    if (accepted)
        event->accept();
    return event;
}

QObject* named(const char* name)
{
    auto* object = new QObject;
    object->setObjectName(QLatin1String(name));
    return object;
}

/// In the child process of options(): the options an API gets from this command line.
int printOptions(int argc, char** argv)
{
    const bool gui = qgetenv("TST_PLUGINAPI_OPTIONS") == "gui";
    std::unique_ptr<QCoreApplication> application(gui ? new QApplication(argc, argv)
                                                      : new QCoreApplication(argc, argv));
    UpdaterPluginsManager manager;
    std::printf("%d\n", int(manager.api()->applicationOptions()));
    return 0;
}

} // namespace

class TestPluginApi : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();
    void pluginDefaults();
    void initAnnouncesExistingObjects();
    void registry();
    void postEvent_data();
    void postEvent();
    void postEventWithoutPlugins();
    void closingDown();
    void calls_data();
    void calls();
    void options_data();
    void options();
    void lastWindowClosed_data();
    void lastWindowClosed();
    void getSetting_data();
    void getSetting();
    void setSetting_data();
    void setSetting();
};

void TestPluginApi::cleanup()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

void TestPluginApi::pluginDefaults()
{
    UpdaterPlugin plugin;
    QVERIFY(plugin.init());
    QSignalSpy uninitialized(&plugin, &UpdaterPlugin::uninitialized);
    plugin.uninit();
    QCOMPARE(uninitialized.count(), 1);
    QCOMPARE(plugin.backgroundModeActivated(true), 0);
    QVERIFY(plugin.prepareToRestart().isEmpty());
    QVERIFY(!plugin.extraData().isValid());

    UpdaterPlugin other;
    plugin.setLoadingErrorString(QStringLiteral("first"));
    other.setLoadingErrorString(QStringLiteral("second"));
    QCOMPARE(_plugin_loading_error_string, QStringLiteral("second"));
    _plugin_loading_error_string.clear();
}

void TestPluginApi::initAnnouncesExistingObjects()
{
    // c fails its init() and still hears of every live object registered before it started.
    Host host;
    host.add({"c||init = false"});
    UpdaterPluginApi* api = host.start()->api();
    QObject* gone = named("gone");
    api->addObject(gone);
    delete gone;
    api->addObject(named("last"));
    host.journal->clear();
    QVERIFY(host.manager->loadPlugins(false));
    QCOMPARE(*host.journal, (QStringList{"c init 1", "c objectAdded journal", "c objectAdded last"}));
}

void TestPluginApi::registry()
{
    // a registers "a1" in its init(): a hears of it from addObject() and again from the
    // announcement of the existing objects after its init(); b when it starts.
    Host host;
    host.add({"a||objects = {'a1'}", "b"});
    UpdaterPluginApi* api = host.start()->api();
    QVERIFY(host.manager->loadPlugins(false));
    QCOMPARE(host.journal->filter(QStringLiteral("objectAdded a1")),
             (QStringList{"a objectAdded a1", "a objectAdded a1", "b objectAdded a1"}));
    QCOMPARE(api->objects().last()->parent(), host.record(QStringLiteral("a"))->plugin());
    host.journal->clear();
    QSignalSpy added(api, &UpdaterPluginApi::objectAdded);

    QObject* twice = named("twice");
    api->addObject(twice);
    api->addObject(twice);
    QCOMPARE(api->objects().count(twice), 1);
    QCOMPARE(added.count(), 2);
    QCOMPARE(*host.journal, (QStringList{"b objectAdded twice", "a objectAdded twice", "b objectAdded twice",
                                         "a objectAdded twice"}));

    // Found by class and by interface, skipping what does not fit.
    auto* settings = new FakeSettings;
    auto* system = new FakeSystemSettings;
    api->addObject(system);
    api->addObject(settings);
    QCOMPARE(api->getObject<ISettingsManager>(), settings);
    QCOMPARE(api->getObject<ISystemSettingsProvider>(), static_cast<ISystemSettingsProvider*>(system));

    const qsizetype entries = api->objects().size();
    delete settings;
    QCOMPARE(api->objects().size(), entries);
    QVERIFY(api->objects().contains(nullptr));
    QVERIFY(!api->getObject<ISettingsManager>());
    auto* replacement = new FakeSettings;
    api->addObject(replacement);
    QCOMPARE(api->getObject<ISettingsManager>(), replacement);

    added.clear();
    host.journal->clear();
    api->removeObject(twice);
    QVERIFY(!api->objects().contains(twice));
    QCOMPARE(added.count(), 0);
    QVERIFY(host.journal->isEmpty());
    delete twice;
}

void TestPluginApi::postEvent_data()
{
    QTest::addColumn<QString>("accepting");
    QTest::addColumn<bool>("accepted");

    QTest::newRow("nobody") << QString() << false;
    QTest::newRow("dependent") << "app" << true;
    QTest::newRow("dependency") << "base" << true;
}

void TestPluginApi::postEvent()
{
    QFETCH(QString, accepting);

    // "app" depends on "base", so it is told first although it comes first by name anyway:
    // "base" then must be told too, whatever "app" did with the event.
    Host host;
    const auto accepts = [&](const char* name) { return accepting == QLatin1String(name) ? "accept = {4}" : ""; };
    QVERIFY(host.load({QStringLiteral("app|depends = {'base'}|") + accepts("app"),
                       QStringLiteral("base||") + accepts("base")}));
    UpdaterPluginApi* api = host.manager->api();

    QTEST(api->postEvent(makeEvent()), "accepted");
    QCOMPARE(*host.journal, (QStringList{"app event 4", "base event 4"}));

    bool deleted = false;
    QTEST(api->postEvent(new TrackedEvent(&deleted)), "accepted");
    QVERIFY(deleted);
}

void TestPluginApi::postEventWithoutPlugins()
{
    UpdaterPluginsManager manager;
    QVERIFY(!manager.api()->postEvent(makeEvent(false)));
    QVERIFY(manager.api()->postEvent(makeEvent(true)));
    // Registered by the manager and the API under the names queued connections use.
    for (const char* name : {"tvl::updater::UpdaterPlugin*", "tvl::updater::UpdaterPluginEvent*",
                             "tvl::updater::UpdaterPluginEventPtr", "tvl::updater::SettingsAttributes"})
        QVERIFY2(QMetaType::fromName(name).isValid(), name);
}

void TestPluginApi::closingDown()
{
    Host host;
    QVERIFY(host.load({"a||accept = {4}"}));
    UpdaterPluginApi* api = host.manager->api();

    QVERIFY(api->pluginIsLoaded(QStringLiteral("a")));
    QVERIFY(!api->pluginIsLoaded(QStringLiteral("zz")));
    api->exit(0);
    QVERIFY(api->closingDown());
    QVERIFY(!api->postEvent(makeEvent(true)));
    QVERIFY(!api->callInPlugin(QStringLiteral("a"), "ping"));
    QVERIFY(!api->call("ping"));
    QVERIFY(host.journal->isEmpty());
    QCOMPARE(runEventLoop(), 0);
}

void TestPluginApi::calls_data()
{
    QTest::addColumn<QString>("plugin"); // null: call()
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QVariant>("argument");
    QTest::addColumn<bool>("result");
    QTest::addColumn<QStringList>("journal");

    const QVariant none;
    QTest::newRow("named") << "a" << QByteArray("ping") << none << true << QStringList{"a ping"};
    QTest::newRow("named, overload") << "a" << QByteArray("ping") << QVariant(5) << true << QStringList{"a ping 5"};
    QTest::newRow("named, string") << "b" << QByteArray("echo") << QVariant("hi") << true << QStringList{"b echo hi"};
    QTest::newRow("every plugin") << "" << QByteArray("ping") << QVariant(2) << true
                                  << QStringList{"a ping 2", "b ping 2"};
    QTest::newRow("call") << QString() << QByteArray("echo") << QVariant("x") << true
                          << QStringList{"a echo x", "b echo x"};
    QTest::newRow("prefix of another method") << "a" << QByteArray("run") << none << false << QStringList();
    QTest::newRow("whole name") << "a" << QByteArray("runAll") << none << true << QStringList{"a runAll"};
    QTest::newRow("no overload fits") << "a" << QByteArray("echo") << QVariant(7) << false << QStringList();
    QTest::newRow("unknown plugin") << "zz" << QByteArray("ping") << none << false << QStringList();
    QTest::newRow("plugin not loaded") << "c" << QByteArray("ping") << none << false << QStringList();
    QTest::newRow("case matters") << "A" << QByteArray("ping") << none << false << QStringList();
}

void TestPluginApi::calls()
{
    QFETCH(QString, plugin);
    QFETCH(QByteArray, method);
    QFETCH(QVariant, argument);

    Host host;
    QVERIFY(host.load({"a", "b", "c||init = false"}));
    UpdaterPluginApi* api = host.manager->api();

    int number = argument.toInt();
    QString text = argument.toString();
    QGenericArgument a1;
    if (argument.typeId() == QMetaType::Int)
        a1 = Q_ARG(int, number);
    else if (argument.typeId() == QMetaType::QString)
        a1 = Q_ARG(QString, text);
    const bool result = plugin.isNull() ? api->call(method.constData(), a1)
                                        : api->callInPlugin(plugin, method.constData(), a1);
    QTEST(result, "result");
    QTEST(*host.journal, "journal");
}

void TestPluginApi::options_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("gui");
    QTest::addColumn<int>("options");

    using A = UpdaterPluginApi;
    QTest::newRow("GUI, nothing") << QStringList() << true << 0;
    QTest::newRow("-s") << QStringList{"-s"} << true << int(A::NoInteraction);
    QTest::newRow("--silent") << QStringList{"--silent"} << true << int(A::NoInteraction);
    QTest::newRow("--no-interaction") << QStringList{"--no-interaction"} << false << int(A::NoInteraction | A::NoGui);
    QTest::newRow("--uninstall") << QStringList{"--uninstall"} << true << int(A::NoRestart);
    QTest::newRow("no short forms") << QStringList{"-u", "-f", "-n", "-r"} << true << 0;
    QTest::newRow("the others") << QStringList{"--no-restart", "--no-footprint"} << true
                                << int(A::NoRestart | A::NoFootprint);
}

void TestPluginApi::options()
{
    QFETCH(QStringList, arguments);
    QFETCH(bool, gui);

    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("TST_PLUGINAPI_OPTIONS"), QLatin1String(gui ? "gui" : "console"));
    child.setProcessEnvironment(environment);
    child.start(QCoreApplication::applicationFilePath(), arguments);
    QVERIFY(child.waitForFinished(60000));
    QCOMPARE(child.exitCode(), 0);
    QTEST(child.readAllStandardOutput().trimmed().toInt(), "options");

    UpdaterPluginsManager manager;
    const auto before = manager.api()->applicationOptions();
    manager.api()->setApplicationOption(UpdaterPluginApi::NoFootprint);
    QCOMPARE(manager.api()->applicationOptions(), before | UpdaterPluginApi::NoFootprint);
}

void TestPluginApi::lastWindowClosed_data()
{
    QTest::addColumn<bool>("accept");

    QTest::newRow("not accepted: quit") << false;
    QTest::newRow("accepted: keep running") << true;
}

void TestPluginApi::lastWindowClosed()
{
    QFETCH(bool, accept);

    Host host;
    QVERIFY(host.load({accept ? "a||accept = {8}" : "a"}, true));
    QVERIFY(!QApplication::quitOnLastWindowClosed());

    QWidget window;
    const int code = runEventLoop([&] {
        window.show();
        QTimer::singleShot(0, &window, &QWidget::close);
    }, accept ? 300 : 10000);
    QCOMPARE(code, accept ? LoopTimedOut : 0);
    QCOMPARE(host.manager->closingDown(), !accept);
    QCOMPARE(host.journal->value(0), QStringLiteral("a event 8"));
}

void TestPluginApi::getSetting_data()
{
    QTest::addColumn<bool>("hasSystem");
    QTest::addColumn<QVariant>("systemValue");
    QTest::addColumn<bool>("hasManager");
    QTest::addColumn<QVariant>("managerValue");
    QTest::addColumn<int>("attributes");
    QTest::addColumn<QVariant>("expected");
    QTest::addColumn<QStringList>("managerCalls");

    const QVariant none;
    const int all = AllScopes;
    const int system = SystemSetting | AllScopes;
    QTest::newRow("no settings manager") << false << none << false << none << all << QVariant("default")
                                         << QStringList();
    QTest::newRow("manager's value") << false << none << true << QVariant("v") << all << QVariant("v")
                                     << QStringList{"get k f0"};
    QTest::newRow("manager has none") << false << none << true << none << all << QVariant("default")
                                      << QStringList{"get k f0"};
    QTest::newRow("null string is none") << false << none << true << QVariant(QString()) << all
                                         << QVariant("default") << QStringList{"get k f0"};
    QTest::newRow("empty string is a value") << false << none << true << QVariant(QStringLiteral("")) << all
                                             << QVariant(QStringLiteral("")) << QStringList{"get k f0"};
    QTest::newRow("attributes passed on") << false << none << true << QVariant(1) << int(RuntimeScope | TrustedUrlOnly)
                                          << QVariant(1) << QStringList{"get k 11"};
    QTest::newRow("system value first") << true << QVariant("sys") << true << QVariant("v") << system
                                        << QVariant("sys") << QStringList();
    QTest::newRow("system without the key") << true << none << true << QVariant("v") << system << QVariant("v")
                                            << QStringList{"get k 10f0"};
    QTest::newRow("system without provider") << false << none << true << QVariant("v") << system << QVariant("v")
                                             << QStringList{"get k 10f0"};
    QTest::newRow("provider only asked for system values") << true << QVariant("sys") << true << QVariant("v")
                                                           << all << QVariant("v") << QStringList{"get k f0"};
}

void TestPluginApi::getSetting()
{
    QFETCH(bool, hasSystem);
    QFETCH(QVariant, systemValue);
    QFETCH(bool, hasManager);
    QFETCH(QVariant, managerValue);
    QFETCH(int, attributes);
    QFETCH(QVariant, expected);

    UpdaterPluginsManager host;
    UpdaterPluginApi* api = host.api();
    auto* settings = new FakeSettings;
    auto* system = new FakeSystemSettings;
    if (managerValue.isValid())
        settings->values.insert(QStringLiteral("k"), managerValue);
    if (systemValue.isValid())
        system->values.insert(QStringLiteral("k"), systemValue);
    if (hasSystem)
        api->addObject(system);
    if (hasManager)
        api->addObject(settings);

    const QVariant value =
        api->getSetting(QStringLiteral("k"), QStringLiteral("default"), SettingsAttributes(attributes));
    QCOMPARE(value, expected);
    QCOMPARE(value.typeId(), expected.typeId());
    QTEST(settings->calls, "managerCalls");

    // With IconSetting the answer is an icon, even of nothing, never the default.
    const QVariant icon =
        api->getSetting(QStringLiteral("missing"), QStringLiteral("default"), IconSetting | AllScopes);
    QCOMPARE(icon.typeId(), hasManager ? QMetaType::QIcon : QMetaType::QString);

    if (!hasSystem)
        delete system;
    if (!hasManager)
        delete settings;
}

void TestPluginApi::setSetting_data()
{
    QTest::addColumn<int>("attributes");
    QTest::addColumn<bool>("closing");
    QTest::addColumn<bool>("hasSystem");
    QTest::addColumn<QStringList>("managerCalls");
    QTest::addColumn<QStringList>("systemCalls");

    const QStringList none;
    QTest::newRow("plain") << int(AllScopes) << false << true << QStringList{"set k v 0 1"} << none;
    QTest::newRow("persist") << int(PersistSetting | AllScopes) << false << true << QStringList{"set k v 1 1"} << none;
    QTest::newRow("silent") << int(SilentSetting | AllScopes) << false << true << QStringList{"set k v 0 0"} << none;
    QTest::newRow("persist, silent") << int(PersistSetting | SilentSetting) << false << false
                                     << QStringList{"set k v 1 0"} << none;
    QTest::newRow("closing down") << int(AllScopes) << true << true << QStringList{"set k v 0 0"} << none;
    QTest::newRow("system") << int(SystemSetting | PersistSetting) << false << true << none
                            << QStringList{"set k v"};
    QTest::newRow("system without provider") << int(SystemSetting) << false << false << none << none;
}

void TestPluginApi::setSetting()
{
    QFETCH(int, attributes);
    QFETCH(bool, closing);
    QFETCH(bool, hasSystem);

    UpdaterPluginsManager manager;
    UpdaterPluginApi* api = manager.api();
    auto* settings = new FakeSettings;
    auto* system = new FakeSystemSettings;
    api->addObject(settings);
    if (hasSystem)
        api->addObject(system);
    if (closing)
        manager.quit();

    api->setSetting(QStringLiteral("k"), QStringLiteral("v"), SettingsAttributes(attributes));
    QTEST(settings->calls, "managerCalls");
    QTEST(system->calls, "systemCalls");
    if (!hasSystem)
        delete system;
}

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsSet("TST_PLUGINAPI_OPTIONS"))
        return printOptions(argc, argv);
    QStandardPaths::setTestModeEnabled(true);
    QApplication application(argc, argv);
    TestPluginApi test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_pluginapi.moc"
