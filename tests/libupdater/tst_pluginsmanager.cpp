#include <libupdater/Updater.h>
#include <libupdater/UpdaterPlugin.h>
#include <libupdater/UpdaterPluginApi.h>
#include <libupdater/UpdaterPluginInfo.h>
#include <libupdater/UpdaterPluginsManager.h>

#include <LogCapture.h>
#include "fixtures/PluginScenario.h"

#include <QtCore/QRegularExpression>
#include <QtCore/QStandardPaths>
#include <QtTest/QTest>
#include <QtWidgets/QApplication>
#include <QtWidgets/QMessageBox>
#include <QtWidgets/QProgressDialog>
#include <QtWidgets/QPushButton>

using namespace tvl::updater;

namespace {

const QString Source = QStringLiteral("libupdater/UpdaterPluginsManager");

/// The manager's records without the detail level.
QStringList managerLog(LogCapture& log)
{
    QStringList lines = log.lines(Source);
    lines.removeIf([](const QString& line) { return line.startsWith(QLatin1String("0 ")); });
    return lines;
}

/// Calls `inspect` with the first visible top-level widget of type T, polling while it lives.
template<typename T>
class WidgetWatch
{
public:
    explicit WidgetWatch(std::function<void(T*)> inspect)
    {
        QObject::connect(&m_timer, &QTimer::timeout, [this, inspect] {
            const QList<QWidget*> widgets = QApplication::topLevelWidgets();
            for (QWidget* widget : widgets) {
                if (auto* found = qobject_cast<T*>(widget); found && found->isVisible()) {
                    m_timer.stop();
                    inspect(found);
                    return;
                }
            }
        });
        m_timer.start(20);
    }

private:
    QTimer m_timer;
};

} // namespace

class TestPluginsManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void discovery_data();
    void discovery();
    void selection_data();
    void selection();
    void bootstrap_data();
    void bootstrap();
    void hardDependencyNotLoaded();
    void mandatoryFailure_data();
    void mandatoryFailure();
    void shutdownOrder();
    void stalledShutdownTerminated();
    void quitCodes_data();
    void quitCodes();
    void singleUnload();

private:
    QTemporaryDir m_preferences;
    LogCapture m_log;
};

void TestPluginsManager::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    // A marker left behind makes this run one after a crash: unsafe plugins are skipped.
    QFile marker(m_preferences.filePath(QStringLiteral(".crash_handler_marker")));
    QVERIFY(marker.open(QIODevice::WriteOnly));
    marker.close();
    tv_set_user_preferences_path(m_preferences.path());
    QVERIFY(tv_setup_crash_handler());
    QVERIFY(tv_previous_run_crashed());
}

void TestPluginsManager::cleanup()
{
    // The API asks the objects registered with it (the journal) to delete themselves.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

void TestPluginsManager::discovery_data()
{
    QTest::addColumn<QStringList>("files"); // "<file name>|<content>"
    QTest::addColumn<QStringList>("plugins");
    QTest::addColumn<QStringList>("log");

    QTest::newRow("empty") << QStringList() << QStringList() << QStringList{"4 NO PLUGIN"};
    QTest::newRow("mixed") << QStringList{"b.updaterplugin|name = 'b'", "A.updaterplugin|name = 'a'",
                                          "broken.updaterplugin|name = = 1", "nameless.updaterplugin|autoload = true",
                                          "notes.txt|name = 'n'", "c.updaterplugin.bak|name = 'c'"}
                           << QStringList{"a", "b"}
                           << QStringList{"3 Reading A.updaterplugin", "3 Reading b.updaterplugin",
                                          "3 Reading broken.updaterplugin", "3 Reading nameless.updaterplugin"};
    QTest::newRow("nothing readable") << QStringList{"x.updaterplugin|depends = {}"} << QStringList()
                                      << QStringList{"3 Reading x.updaterplugin", "4 NO PLUGIN"};
}

void TestPluginsManager::discovery()
{
    QFETCH(QStringList, files);
    QFETCH(QStringList, plugins);

    PluginDir dir;
    for (const QString& file : std::as_const(files))
        dir.write(file.section(QLatin1Char('|'), 0, 0), file.section(QLatin1Char('|'), 1));
    m_log.take();
    UpdaterPluginsManager manager;
    manager.setPluginPath(dir.path());
    QCOMPARE(manager.pluginPath(), dir.path());
    QVERIFY(QCoreApplication::libraryPaths().contains(dir.path()));
    QStringList names;
    for (UpdaterPluginInfo* info : manager.plugins())
        names.append(info->name());
    QCOMPARE(names, plugins);
    QTEST(managerLog(m_log), "log");
}

void TestPluginsManager::selection_data()
{
    QTest::addColumn<QStringList>("plugins"); // "<name>|<descriptor lines>|<data fields>"
    QTest::addColumn<QStringList>("loaded");
    QTest::addColumn<QStringList>("log");

    QTest::newRow("without a settings manager everything loads")
        << QStringList{"a|autoload = false", "g|needGUI = true", "u|unsafe = true"} << QStringList{"g", "a", "u"}
        << QStringList{"3 Loading plugin g", "3 Loading plugin a", "3 Loading plugin u"};
    QTest::newRow("replaced plugin left out") << QStringList{"a", "x", "y|replace = {'x'}"} << QStringList{"a", "y"}
                                              << QStringList{"4 Plugin y replace x", "3 Loading plugin a",
                                                             "3 Loading plugin y"};
    QTest::newRow("replaced plugin needed by name")
        << QStringList{"p|depends = {'x'}", "x", "y|replace = {'x'}"} << QStringList{"x", "p", "y"}
        << QStringList{"4 Plugin y replace x", "3 Loading plugin x", "3 Loading plugin p", "3 Loading plugin y"};
    QTest::newRow("required by") << QStringList{"a", "b|required_by = {'a'}"} << QStringList{"b", "a"}
                                 << QStringList{"3 Loading plugin b", "3 Loading plugin a"};
    QTest::newRow("failed dependency")
        << QStringList{"a||init = false, error = 'no disk'", "b|depends = {'a'}"} << QStringList()
        << QStringList{"3 Loading plugin a", "5 Plugin initialization failed", "4 Plugin a not loaded",
                       "3 Loading plugin b", "5 Plugin b can not be loaded because the dependence a is not loaded"};
}

void TestPluginsManager::selection()
{
    QFETCH(QStringList, plugins);
    QFETCH(QStringList, loaded);

    Host host;
    host.add(plugins);
    host.start();
    m_log.take();
    QVERIFY(host.manager->loadPlugins(false));
    QCOMPARE(host.loaded(), loaded);
    QTEST(managerLog(m_log), "log");
    QVERIFY(_plugin_loading_error_string.isEmpty());
}

void TestPluginsManager::bootstrap_data()
{
    QTest::addColumn<bool>("hasGui");
    QTest::addColumn<QStringList>("loaded");
    QTest::addColumn<QStringList>("log");

    const QString unsafe = QStringLiteral("4 unsafe plugin 'u' not loaded ( previous run crashed )");
    QTest::newRow("console") << false << QStringList{"b", "core", "e", "d", "h"}
                             << QStringList{"3 Loading plugin b", "3 Loading plugin core", unsafe, "3 Loading plugin e",
                                            "3 Loading plugin d", "3 Loading plugin h"};
    QTest::newRow("GUI") << true << QStringList{"b", "core", "g", "e", "d", "h"}
                         << QStringList{"3 Loading plugin b", "3 Loading plugin core", unsafe, "3 Loading plugin g",
                                        "3 Loading plugin e", "3 Loading plugin d", "3 Loading plugin h"};
}

void TestPluginsManager::bootstrap()
{
    QFETCH(bool, hasGui);
    QFETCH(QStringList, loaded);

    // b is loaded before the settings exist and stays although they disable it; d is disabled
    // but a hard dependency of h.
    Host host;
    host.add({"b", "core|depends = {'b'}|settings = { ['plugins.disable'] = {'b', 'd'}, ['plugins.enable'] = {'e'} }",
              "d", "e|autoload = false", "f|autoload = false", "g|needGUI = true; depends = {'core'}",
              "h|depends = {'d'}", "u|unsafe = true"});
    host.start();
    m_log.take();
    QVERIFY(host.manager->loadPlugins(hasGui));
    QCOMPARE(host.loaded(), loaded);
    QTEST(managerLog(m_log), "log");
    // The inner run finishes the load: one event for everybody, nobody initialised twice.
    for (const QString& name : std::as_const(loaded)) {
        QCOMPARE(host.journal->count(name + QStringLiteral(" event 7")), 1);
        QCOMPARE(host.journal->filter(QRegularExpression(QStringLiteral("^%1 init ").arg(name))).size(), 1);
    }
}

void TestPluginsManager::hardDependencyNotLoaded()
{
    Host host;
    host.add({"d", "h|depends = {'d'}"});
    host.start();
    m_log.take();
    QVERIFY(host.manager->loadPlugin(host.record(QStringLiteral("h"))));
    QVERIFY(host.loaded().isEmpty());
    QCOMPARE(managerLog(m_log), (QStringList{"3 Loading plugin h",
                                             "5 Plugin h can not be loaded because the dependence d is not loaded"}));
}

void TestPluginsManager::mandatoryFailure_data()
{
    QTest::addColumn<QString>("data");
    QTest::addColumn<bool>("plainLibrary");
    QTest::addColumn<bool>("dialog");
    QTest::addColumn<QString>("details");

    QTest::newRow("init fails with a reason") << "init = false, error = 'disk full'" << false << true << "disk full";
    QTest::newRow("init fails silently") << "init = false, error = 'QUIT_SILENTLY'" << false << false << QString();
    QTest::newRow("library refused") << QString() << true << true << QString();
}

void TestPluginsManager::mandatoryFailure()
{
    QFETCH(QString, data);
    QFETCH(bool, plainLibrary);
    QFETCH(bool, dialog);
    QFETCH(QString, details);

    Host host;
    host.add({"a", "m|mandatory = true|" + data, "z"});
    if (plainLibrary)
        host.dir.copy(QStringLiteral(PLAIN_OBJECT_PLUGIN), QStringLiteral("m"));
    host.start();
    m_log.take();

    QStringList shown; // title, text, details
    WidgetWatch<QMessageBox> watch([&](QMessageBox* box) {
        shown << box->windowTitle() << box->text() << box->informativeText();
        const QList<QAbstractButton*> buttons = box->buttons();
        if (buttons.size() == 1 && buttons.first()->text() == QLatin1String("Quit"))
            buttons.first()->click();
    });
    bool result = true;
    QCOMPARE(runEventLoop([&] { result = host.manager->loadPlugins(true); }), 126);
    QVERIFY(!result);
    QCOMPARE(host.loaded(), QStringList{"a"});
    QVERIFY(!host.journal->contains(QStringLiteral("a event 7")));

    if (dialog) {
        QCOMPARE(shown, (QStringList{"Initialisation failed",
                                     "The application has encountered a problem while loading 'plugin m'.\n"
                                     "If the problem persists, please contact our customers service.",
                                     details}));
    } else {
        QVERIFY(shown.isEmpty());
    }
    QStringList log{"3 Loading plugin a", "3 Loading plugin m"};
    if (!plainLibrary)
        log << "5 Plugin initialization failed";
    log << "4 Plugin m not loaded" << "5 Required plugin error : plugin 'm' isn't loaded.";
    QCOMPARE(managerLog(m_log), log);
}

void TestPluginsManager::shutdownOrder()
{
    // "app" comes first by name but depends on "base": it has to go first, and "base" may not
    // even be asked before "app" has finished, however long that takes.
    Host host;
    QVERIFY(host.load({"app|depends = {'base'}|uninit_delay = 40", "base||uninit_delay = 1"}));
    QCOMPARE(host.manager->loadedPlugins(), (QList<UpdaterPlugin*>{host.record(QStringLiteral("app"))->plugin(),
                                                                  host.record(QStringLiteral("base"))->plugin()}));
    m_log.take();

    bool stillLoaded = false;
    QCOMPARE(runEventLoop([&] {
                 host.manager->quit();
                 stillLoaded = host.record(QStringLiteral("app"))->isLoaded();
             }),
             0);
    QVERIFY(stillLoaded);
    QVERIFY(host.manager->closingDown());
    QCOMPARE(*host.journal, (QStringList{"app uninit", "app uninitialized", "app destroyed", "base uninit",
                                         "base uninitialized", "base destroyed"}));
    QCOMPARE(managerLog(m_log), (QStringList{"3 Uninitialize app", "3 Unload app", "3 Uninitialize base",
                                             "3 Unload base"}));
    // At shutdown only the plugin objects go; the libraries stay mapped.
    QVERIFY(libraryMapped(host.dir.library(QStringLiteral("app"))));
    QVERIFY(host.manager->loadedPlugins().isEmpty());
}

void TestPluginsManager::stalledShutdownTerminated()
{
    Host host;
    QVERIFY(host.load({"a", "stuck||uninit_delay = -1"}, true));

    QVariantList seen;
    WidgetWatch<QProgressDialog> watch([&](QProgressDialog* dialog) {
        seen << dialog->windowTitle() << dialog->labelText() << dialog->minimum() << dialog->maximum()
             << dialog->value() << dialog->isModal();
        for (QPushButton* button : dialog->findChildren<QPushButton*>()) {
            if (button->text() == QLatin1String("Terminate"))
                button->click();
        }
    });
    QCOMPARE(runEventLoop([&] { host.manager->quit(5); }), 0);
    QCOMPARE(seen, (QVariantList{QCoreApplication::applicationName() + QStringLiteral(" is shutting down..."),
                                 "Unloading stuck", 0, 2, 0, true}));
    QCOMPARE(*host.journal, QStringList{"stuck uninit"});

    m_log.take();
    host.manager.reset();
    QCOMPARE(managerLog(m_log), (QStringList{"4 Destroying stuck while it's still loaded",
                                             "4 Destroying a while it's still loaded"}));
    QCOMPARE(*host.journal, (QStringList{"stuck uninit", "stuck destroyed", "a destroyed"}));
}

void TestPluginsManager::quitCodes_data()
{
    QTest::addColumn<bool>("withPlugin");
    QTest::addColumn<QList<int>>("quits");
    QTest::addColumn<int>("code");

    QTest::newRow("second code ignored") << true << QList<int>{3, 5} << 3;
    QTest::newRow("second call after 0 ignored") << true << QList<int>{0, 3} << 0;
    QTest::newRow("no plugin") << false << QList<int>{7} << 7;
}

void TestPluginsManager::quitCodes()
{
    QFETCH(bool, withPlugin);
    QFETCH(QList<int>, quits);

    Host host;
    QVERIFY(host.load(withPlugin ? QStringList{"a"} : QStringList()));
    QTEST(runEventLoop([&] {
              for (int code : quits)
                  host.manager->quit(code);
          }),
          "code");
    QVERIFY(host.loaded().isEmpty());
}

void TestPluginsManager::singleUnload()
{
    Host host;
    QVERIFY(host.load({"a", "b"}));
    UpdaterPluginInfo* a = host.record(QStringLiteral("a"));
    UpdaterPluginInfo* b = host.record(QStringLiteral("b"));

    bool aMapped = true;
    connect(a, &UpdaterPluginInfo::unloaded, this, [&] {
        aMapped = libraryMapped(host.dir.library(QStringLiteral("a")));
        // Queued, as anything reacting to unloaded() would: the manager's own step for "a"
        // must not find "b" already on its way out, or it would end the loop before "b" is gone.
        QTimer::singleShot(0, host.manager.get(), [&] { host.manager->unloadPlugin(b); });
    });
    // Unloading the last plugin ends the loop although nobody asked to quit.
    QCOMPARE(runEventLoop([&] { host.manager->unloadPlugin(a); }), 0);
    QVERIFY(!host.manager->closingDown());
    QVERIFY(!aMapped);
    QVERIFY(!libraryMapped(host.dir.library(QStringLiteral("b"))));
    QCOMPARE(*host.journal, (QStringList{"a uninit", "a destroyed", "b uninit", "b destroyed"}));

    // Mapped afresh, the library counts its plugin objects from 1 again.
    QVERIFY(host.manager->loadPlugin(a));
    QVERIFY(host.journal->contains(QStringLiteral("a init 1")));
}

QTEST_MAIN(TestPluginsManager)
#include "tst_pluginsmanager.moc"
