// The plugin host and its API over real plugin libraries: descriptors, dependencies, loading and unloading,
// mandatory failures, shutdown, the object registry, calls into plugins, options and the last window closed.
#include <libupdater/Updater.h>
#include <libupdater/UpdaterPlugin.h>
#include <libupdater/UpdaterPluginCustomUrlClickedEvent.h>
#include <libupdater/UpdaterPluginInfo_p.h>
#include <libupdater/UpdaterPluginsManager_p.h>

#include <basix/ICISettings.h>

#include <LogCapture.h>
#include "fixtures/PluginScenario.h"

#include <QtCore/QPointer>
#include <QtCore/QRegularExpression>
#include <QtTest/QSignalSpy>
#include <QtTest/QTest>
#include <QtWidgets/QApplication>
#include <QtWidgets/QMessageBox>
#include <QtWidgets/QProgressDialog>
#include <QtWidgets/QPushButton>

#include <cstdio>

using namespace tvl::updater;

namespace {

UpdaterPluginInfoPrivate* d(UpdaterPluginInfo* info) { return UpdaterPluginInfoPrivate::get(info); }
QStringList split(const char* words) { return QString::fromLatin1(words).split(' ', Qt::SkipEmptyParts); }

/// Calls `inspect` with the modal widget of type T once one shows up, while `context` lives.
template<typename T>
void whenModal(QObject* context, const std::function<void(T*)>& inspect)
{
    QTimer::singleShot(20, context, [context, inspect] {
        if (auto* widget = qobject_cast<T*>(QApplication::activeModalWidget()); widget && widget->isVisible())
            inspect(widget);
        else
            whenModal(context, inspect);
    });
}

/// The child of options(): prints the options of an API in a "gui" or "console" application.
int printOptions(const QByteArray& scenario, int argc, char** argv)
{
    const std::unique_ptr<QCoreApplication> application(
        scenario == "gui" ? new QApplication(argc, argv) : new QCoreApplication(argc, argv));
    std::printf("%d\n", int(UpdaterPluginsManager().api()->applicationOptions()));
    return 0;
}

} // namespace

class TestPluginsManager : public QObject
{
    Q_OBJECT

    QTemporaryDir m_preferences;
    PluginDir m_dir;
    LogCapture m_log;

    /// The manager's records since the last call, without the detail level and the "Loading plugin" lines.
    QStringList log()
    {
        QStringList lines = m_log.lines(QStringLiteral("libupdater/UpdaterPluginsManager"));
        lines.removeIf([](const QString& line) { return line.startsWith('0') || line.contains("Loading plugin"); });
        return lines;
    }

private Q_SLOTS:
    void initTestCase()
    {
        // A marker left behind makes this run one after a crash: unsafe plugins are skipped.
        testsupport::writeFile(m_preferences.filePath(QStringLiteral(".crash_handler_marker")), {});
        tv_set_user_preferences_path(m_preferences.path());
        QVERIFY(tv_setup_crash_handler() && tv_previous_run_crashed());
    }

    void cleanup() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

    void read_data()
    {
        QTest::addColumn<QString>("source");
        // name, autoload, soft_depends, depends, required_by, replace, mandatory, needGUI, unsafe; empty: refused
        QTest::addColumn<QStringList>("fields");
        QTest::addColumn<QVariant>("data");
        QTest::addColumn<QStringList>("log"); // "%1" stands for the descriptor's path

        QTest::newRow("defaults") << "name = 'a'" << split("a 1 - - - - 0 0 0") << QVariant() << QStringList();
        QTest::newRow("every key") << "name = 'b'; autoload = false; soft_depends = {'s1', 's2'}; depends = {'d'}\n"
                                      "required_by = {'r1', 'r2'}; replace = {'x'}; mandatory = true\n"
                                      "needGUI = true; unsafe = true; data = { theme = 'dark' }"
                                   << split("b 0 s1,s2 d r1,r2 x 1 1 1") << QVariant(QVariantMap{{"theme", "dark"}})
                                   << QStringList();
        QTest::newRow("no name") << "autoload = false" << QStringList() << QVariant() << QStringList();
        QTest::newRow("evaluation error") << "name = 'a'\nerror('broken')" << QStringList() << QVariant()
                                          << QStringList{"5 %1:2: broken"};
        // Misspelt keys are read as nothing, but said; a key far from every known one is said without a guess.
        QTest::newRow("unknown keys") << "name = 'c'; soft_depend = {'x'}; mandatroy = true; colour = 'red'"
                                      << split("c 1 - - - - 0 0 0") << QVariant()
                                      << QStringList{"4 Unknown key 'colour' in %1",
                                                     "4 Unknown key 'mandatroy' in %1: did you mean 'mandatory'?",
                                                     "4 Unknown key 'soft_depend' in %1: did you mean 'soft_depends'?"};
    }

    void read()
    {
        QFETCH(QString, source);
        QFETCH(QStringList, fields);
        QFETCH(QStringList, log);

        const QString file = testsupport::writeFile(m_dir.path() + "/read.updaterplugin", source.toUtf8());
        m_log.take();
        UpdaterPluginInfo info;
        QCOMPARE(d(&info)->read(file), !fields.isEmpty());
        QCOMPARE(m_log.lines(QStringLiteral("libupdater/UpdaterPluginInfo")), log.replaceInStrings("%1", file));
        if (fields.isEmpty())
            return;
        const auto join = [](const QStringList& list) { return list.isEmpty() ? QStringLiteral("-") : list.join(','); };
        const auto flag = [](bool value) { return QString::number(value); };
        QCOMPARE(info.name(), fields[0]);
        QCOMPARE(flag(info.autoLoad()), fields[1]);
        QCOMPARE(join(info.softDependencies()), fields[2]);
        QCOMPARE(join(info.dependencies()), fields[3]);
        QCOMPARE(join(info.requiredBy()), fields[4]);
        QCOMPARE(join(info.replacedPlugins()), fields[5]);
        QCOMPARE(flag(info.isMandatory()), fields[6]);
        QCOMPARE(flag(info.needGUI()), fields[7]);
        QCOMPARE(flag(info.unsafe()), fields[8]);
        QTEST(d(&info)->data, "data");
        QCOMPARE(info.descriptorFile(), file);
    }

    void loadAndUnload_data()
    {
        QTest::addColumn<bool>("unloadLibrary");
        QTest::newRow("library unloaded") << true;
        QTest::newRow("library kept") << false;
    }

    void loadAndUnload()
    {
        QFETCH(bool, unloadLibrary);
        const QString name = QString::fromLatin1(QTest::currentDataTag()).section(' ', 1);
        m_dir.add(name);
        UpdaterPluginInfo info;
        QVERIFY(d(&info)->read(m_dir.path() + QStringLiteral("/%1.updaterplugin").arg(name)) && d(&info)->loadPlugin());
        QPointer<UpdaterPlugin> plugin = info.plugin();
        QVERIFY(plugin && info.isLoaded() && libraryMapped(m_dir.library(name)));

        // The plugin object goes on a later turn of the event loop, the library after it.
        QSignalSpy unloaded(&info, &UpdaterPluginInfo::unloaded);
        QVERIFY(d(&info)->unloadPlugin(unloadLibrary));
        QVERIFY(!info.isLoaded() && !info.plugin() && plugin && unloaded.isEmpty());
        QVERIFY(unloaded.wait() && !plugin && unloaded.count() == 1);
        QCOMPARE(libraryMapped(m_dir.library(name)), !unloadLibrary);

        // Whatever the first unload kept, loading again and unloading with the library clears all.
        QVERIFY(d(&info)->loadPlugin() && d(&info)->unloadPlugin(true) && unloaded.wait());
        QVERIFY(!libraryMapped(m_dir.library(name)));
    }

    void resolve_data()
    {
        QTest::addColumn<QString>("descriptors");
        QTest::addColumn<QString>("resolved"); // "<plugin>:<dependency>=<hard>,..." per record with dependencies
        QTest::addColumn<bool>("missing");     // the hard dependency m is missing

        const auto row = [](const char* tag, const char* descriptors, const char* resolved, bool missing = false) {
            QTest::newRow(tag) << descriptors << resolved << missing;
        };
        row("hard by name", "p|depends = {'x'} / x", "p:x=1");
        row("real plugin before its replacer", "p|depends = {'x'} / x / y|replace = {'x'}", "p:x=1");
        row("replacer before the real plugin", "p|depends = {'x'} / w|replace = {'x'} / x", "p:w=0,x=1");
        row("only replacers", "p|depends = {'x'} / y|replace = {'x'} / z|replace = {'w', 'x'}", "p:y=0,z=0");
        row("missing hard dependency skips the rest",
            "p|depends = {'m', 'x'}; soft_depends = {'x'}; required_by = {'r'} / x / r", "", true);
        row("missing after a found one", "p|depends = {'x', 'm'} / x", "p:x=1", true);
        row("soft", "p|soft_depends = {'x', 'absent'} / x", "p:x=0");
        row("soft through a replacer", "p|soft_depends = {'x'} / w|replace = {'x'} / x", "p:w=0,x=0");
        row("injection", "p|required_by = {'r'} / r", "r:p=0");
        row("injection through a replaced name", "p|required_by = {'x'} / r|replace = {'x'}", "r:p=0");
        row("no injection into a dependent", "p|required_by = {'r'} / r|depends = {'p'}", "");
        row("no injection into a dependency", "p|required_by = {'r'}; depends = {'r'} / r", "p:r=1");
    }

    void resolve()
    {
        QFETCH(QString, descriptors);
        QFETCH(bool, missing);
        Host host;
        host.add(descriptors.split(QStringLiteral(" / ")));
        QList<UpdaterPluginInfo*> all = host.start()->plugins(); // by file name
        for (UpdaterPluginInfo* info : std::as_const(all))
            d(info)->dependencies.clear(); // only p's own resolution counts
        m_log.take();
        QCOMPARE(d(host.record(QStringLiteral("p")))->resolveDependencies(all), !missing);
        QStringList resolved;
        for (UpdaterPluginInfo* info : std::as_const(all)) {
            QStringList entries;
            for (const auto& [name, hard] : info->resolvedDependencies())
                entries.append(name + QLatin1Char('=') + QString::number(hard));
            entries.sort();
            if (!entries.isEmpty())
                resolved.append(info->name() + QLatin1Char(':') + entries.join(QLatin1Char(',')));
        }
        QTEST(resolved.join(QLatin1Char(' ')), "resolved");
        const QStringList warnings =
            m_log.lines(QStringLiteral("libupdater/UpdaterPluginInfo")).filter(QRegularExpression("^[4-9] "));
        QCOMPARE(warnings, missing ? QStringList{"4 Plugin m not found"} : QStringList());
    }

    void sort_data()
    {
        QTest::addColumn<QString>("descriptors");
        QTest::addColumn<QStringList>("start");
        QTest::addColumn<QStringList>("order");
        QTest::addColumn<QStringList>("disabled");
        QTest::addColumn<QStringList>("enabled");
        QTest::addColumn<bool>("hasGui");
        QTest::addColumn<QStringList>("log");

        const auto row = [](const char* tag, const char* descriptors, const char* start, const char* order,
                            const char* disabled = "", const char* enabled = "", bool gui = false,
                            const QStringList& log = {}) {
            QTest::newRow(tag) << descriptors << split(start) << split(order) << split(disabled) << split(enabled)
                               << gui << log;
        };
        row("shared dependency placed once", "a|depends = {'c'} / b|depends = {'c'} / c", "a b", "c a b");
        row("disabled hard dependency placed", "a|depends = {'b'} / b", "a", "b a", "b");
        row("disabled soft dependency left out", "a|soft_depends = {'b'} / b", "a", "a", "b");
        row("soft, not autoload", "a|soft_depends = {'b'} / b|autoload = false", "a", "a");
        row("soft, not autoload, enabled", "a|soft_depends = {'b'} / b|autoload = false", "a", "b a", "", "b");
        row("hard GUI dependency without GUI", "a|depends = {'g'} / g|needGUI = true", "a", "a");
        row("soft GUI dependency with GUI", "a|soft_depends = {'g'} / g|needGUI = true", "a", "g a", "", "", true);
        row("replacer of a hard dependency", "a|depends = {'x'} / y|replace = {'x'}", "a", "y a");
        row("disabled replacer of a hard dependency", "a|depends = {'x'} / y|replace = {'x'}", "a", "a", "y");
        row("injected", "a / b|required_by = {'a'}", "a", "b a");
        // A cycle is placed all the same, the plugin first reached last, and reported once however entered.
        row("cycle", "a|depends = {'b'} / b|depends = {'a'}", "a", "b a", "", "", false,
            {"4 Dependency cycle: a -> b -> a"});
        row("longer cycle", "a|depends = {'b'} / b|depends = {'c'} / c|depends = {'a'}", "b", "a c b", "", "", false,
            {"4 Dependency cycle: b -> c -> a -> b"});
    }

    void sort()
    {
        QFETCH(QString, descriptors);
        QFETCH(QStringList, start);
        QFETCH(QStringList, disabled);
        QFETCH(QStringList, enabled);
        QFETCH(bool, hasGui);
        Host host;
        host.add(descriptors.split(QStringLiteral(" / ")));
        UpdaterPluginsManagerPrivate* manager = UpdaterPluginsManagerPrivate::get(host.start()); // resolves all
        manager->hasGui = hasGui;
        m_log.take();
        QList<UpdaterPluginInfo*> visited, order, again;
        for (const QString& name : std::as_const(start))
            manager->sort_plugins(host.record(name), visited, order, disabled, enabled);
        QStringList names;
        for (UpdaterPluginInfo* info : std::as_const(order))
            names.append(info->name());
        QTEST(names, "order");
        visited.clear(); // a later load, entering from elsewhere
        manager->sort_plugins(order.first(), visited, again, disabled, enabled);
        QTEST(log(), "log");
    }

    void load_data()
    {
        QTest::addColumn<QStringList>("plugins"); // "<name>|<descriptor lines>|<data fields>"
        QTest::addColumn<bool>("gui");
        QTest::addColumn<QStringList>("loaded");
        QTest::addColumn<QStringList>("log");
        QTest::addColumn<QString>("details"); // of the error dialog; null: none

        const auto row = [](const char* tag, const QStringList& plugins, bool gui, const char* loaded,
                            const QStringList& log, const QString& details = QString()) {
            QTest::newRow(tag) << plugins << gui << split(loaded) << log << details;
        };
        row("no settings manager: everything loads", {"a|autoload = false", "g|needGUI = true", "u|unsafe = true"},
            false, "g a u", {});
        row("replaced plugin left out", {"a", "x", "y|replace = {'x'}"}, false, "a y", {"4 Plugin y replace x"});
        row("replaced plugin needed by name", {"p|depends = {'x'}", "x", "y|replace = {'x'}"}, false, "x p y",
            {"4 Plugin y replace x"});
        row("failed dependency", {"a||init = false, error = 'no disk'", "b|depends = {'a'}"}, false, "",
            {"5 Plugin initialization failed", "4 Plugin a not loaded",
             "5 Plugin b can not be loaded because the dependence a is not loaded"});
        // b is loaded before core brings the settings and stays although they disable it; d is disabled but a
        // hard dependency of h.
        const QStringList bootstrap{
            "b", "core|depends = {'b'}|settings = { ['plugins.disable'] = {'b', 'd'}, ['plugins.enable'] = {'e'} }",
            "d", "e|autoload = false", "f|autoload = false", "g|needGUI = true; depends = {'core'}",
            "h|depends = {'d'}", "u|unsafe = true"};
        const QString unsafe = QStringLiteral("4 unsafe plugin 'u' not loaded ( previous run crashed )");
        row("bootstrap, console", bootstrap, false, "b core e d h", {unsafe});
        row("bootstrap, GUI", bootstrap, true, "b core g e d h", {unsafe});
        // A mandatory plugin that fails ends the application, telling the user why unless asked to keep quiet.
        const QStringList failed{"4 Plugin m not loaded", "5 Required plugin error : plugin 'm' isn't loaded."};
        const QStringList initFailed = QStringList{"5 Plugin initialization failed"} + failed;
        row("mandatory init fails", {"a", "m|mandatory = true|init = false, error = 'disk full'", "z"}, true, "a",
            initFailed, "disk full");
        row("mandatory init fails silently", {"a", "m|mandatory = true|init = false, error = 'QUIT_SILENTLY'", "z"},
            true, "a", initFailed);
        row("mandatory library refused", {"a", "m|mandatory = true|plain = true", "z"}, true, "a", failed, "");
        row("mandatory init throws", {"a", "m|mandatory = true|throw = {'init'}", "z"}, true, "a", initFailed, "");
    }

    void load()
    {
        QFETCH(QStringList, plugins);
        QFETCH(bool, gui);
        QFETCH(QStringList, loaded);
        QFETCH(QStringList, log);
        QFETCH(QString, details);

        Host host;
        host.add(plugins);
        if (plugins.join(' ').contains(QLatin1String("plain = true"))) // a library whose root object is no plugin
            host.dir.copy(QStringLiteral(PLAIN_OBJECT_PLUGIN), QStringLiteral("m"));
        host.start();
        m_log.take();
        QStringList shown; // title, text, details
        whenModal<QMessageBox>(host.manager.get(), [&](QMessageBox* box) {
            shown << box->windowTitle() << box->text() << box->informativeText();
            if (box->buttons().size() == 1 && box->buttons().first()->text() == QLatin1String("Quit"))
                box->buttons().first()->click();
        });
        bool result = false;
        const int code = runEventLoop([&] {
            if ((result = host.manager->loadPlugins(gui)))
                QCoreApplication::exit(0);
        });
        const bool failed = !log.filter(QStringLiteral("Required plugin")).isEmpty();
        QVERIFY(code == (failed ? 126 : 0) && result == !failed);
        QCOMPARE(host.loaded(), loaded);
        QCOMPARE(this->log(), log);
        const QString text = QStringLiteral("The application has encountered a problem while loading 'plugin m'.\n"
                                            "If the problem persists, please contact our customers service.");
        QCOMPARE(shown, details.isNull() ? QStringList() : (QStringList{"Initialisation failed", text, details}));
        QVERIFY(failed || _plugin_loading_error_string.isEmpty());
        // A load restarted by a new settings manager ends as one: no second init(), one "all loaded" (event 7).
        for (const QString& name : std::as_const(loaded)) {
            QCOMPARE(host.journal->count(name + QStringLiteral(" init 1")), 1);
            QCOMPARE(host.journal->count(name + QStringLiteral(" event 7")), failed ? 0 : 1);
        }
    }

    void shutdown_data()
    {
        QTest::addColumn<QStringList>("plugins");
        QTest::addColumn<QList<int>>("quits");
        QTest::addColumn<int>("code");
        QTest::addColumn<QStringList>("journal");

        // "app" depends on "base": it goes first, and "base" is not even asked before "app" has finished.
        QTest::newRow("dependents first, each awaited")
            << QStringList{"app|depends = {'base'}|uninit_delay = 40", "base||uninit_delay = 1"} << QList<int>{0}
            << 0
            << QStringList{"app uninit", "app uninitialized", "app destroyed", "base uninit", "base uninitialized",
                           "base destroyed"};
        const QStringList a{"a uninit", "a destroyed"};
        QTest::newRow("second code ignored") << QStringList{"a"} << QList<int>{3, 5} << 3 << a;
        QTest::newRow("second call after 0 ignored") << QStringList{"a"} << QList<int>{0, 3} << 0 << a;
        QTest::newRow("no plugin") << QStringList() << QList<int>{7} << 7 << QStringList();
    }

    void shutdown()
    {
        QFETCH(QStringList, plugins);
        QFETCH(QList<int>, quits);

        Host host;
        QVERIFY(host.load(plugins));
        const QStringList before = host.loaded();
        QStringList during;
        QTEST(runEventLoop([&] {
                  for (int code : quits)
                      host.manager->quit(code);
                  during = host.loaded(); // it starts on the next turn of the event loop
                  host.manager->api()->call("ping"); // closing down: nothing reaches the plugins
                  host.manager->api()->postEvent(new UpdaterPluginEvent(UpdaterPluginEvent::CustomEvent));
              }),
              "code");
        QVERIFY(during == before && host.manager->closingDown() && host.loaded().isEmpty());
        QTEST(*host.journal, "journal");
        // At shutdown only the plugin objects go; the libraries stay mapped.
        for (const QString& name : before)
            QVERIFY(libraryMapped(host.dir.library(name)));
    }

    void stalledShutdownTerminated()
    {
        Host host;
        QVERIFY(host.load({"a", "stuck||uninit_delay = -1"}, true));
        QVariantList seen;
        whenModal<QProgressDialog>(host.manager.get(), [&](QProgressDialog* dialog) {
            seen << dialog->windowTitle() << dialog->labelText() << dialog->minimum() << dialog->maximum()
                 << dialog->value();
            for (QPushButton* button : dialog->findChildren<QPushButton*>()) {
                if (button->text() == QLatin1String("Terminate"))
                    button->click();
            }
        });
        QCOMPARE(runEventLoop([&] { host.manager->quit(5); }), 0);
        QCOMPARE(seen, (QVariantList{QCoreApplication::applicationName() + QStringLiteral(" is shutting down..."),
                                     "Unloading stuck", 0, 2, 0}));
        m_log.take();
        host.manager.reset();
        QCOMPARE(log(), (QStringList{"4 Destroying stuck while it's still loaded",
                                     "4 Destroying a while it's still loaded"}));
        QCOMPARE(*host.journal, (QStringList{"stuck uninit", "stuck destroyed", "a destroyed"}));
    }

    void singleUnload()
    {
        Host host;
        QVERIFY(host.load({"a", "b"}));
        UpdaterPluginInfo* a = host.record(QStringLiteral("a"));
        bool aMapped = true;
        QStringList loadedAfterA;
        connect(a, &UpdaterPluginInfo::unloaded, this, [&] {
            aMapped = libraryMapped(host.dir.library(QStringLiteral("a")));
            // Only runs if the end of "a"'s unload (a few turns of the loop away) did not end the loop.
            QTimer::singleShot(50, host.manager.get(), [&] {
                loadedAfterA = host.loaded();
                host.manager->unloadPlugin(host.record(QStringLiteral("b")));
            });
        });
        // Unloading a plugin while another is loaded leaves the loop running; unloading the last one ends it
        // although nobody asked to quit.
        QCOMPARE(runEventLoop([&] { host.manager->unloadPlugin(a); }), 0);
        QCOMPARE(loadedAfterA, QStringList{QStringLiteral("b")});
        QVERIFY(!host.manager->closingDown() && !aMapped && !libraryMapped(host.dir.library(QStringLiteral("b"))));
        QCOMPARE(*host.journal, (QStringList{"a uninit", "a destroyed", "b uninit", "b destroyed"}));
        // Mapped afresh, the library counts its plugin objects from 1 again.
        QVERIFY(host.manager->loadPlugin(a) && host.journal->contains(QStringLiteral("a init 1")));
    }

    void registry()
    {
        // a registers "a1" in its init(): a hears of it from addObject() and again from the announcement of what
        // exists after its init(); b and c (whose init() fails) when they start. A destroyed object is skipped.
        Host host;
        host.add({"a||objects = {'a1'}", "b", "c||init = false"});
        UpdaterPluginApi* api = host.start()->api();
        auto* gone = new QObject;
        api->addObject(gone);
        delete gone;
        QVERIFY(host.manager->loadPlugins(false));
        QCOMPARE(host.journal->filter(QStringLiteral("objectAdded")),
                 (QStringList{"a objectAdded a1", "a objectAdded journal", "a objectAdded a1",
                              "b objectAdded journal", "b objectAdded a1", "c objectAdded journal",
                              "c objectAdded a1"}));

        // Registered once however often added, but announced (to the loaded plugins, dependents first) each time;
        // found by class past a destroyed object and objects of other classes; unregistered without a word.
        host.journal->clear();
        QSignalSpy added(api, &UpdaterPluginApi::objectAdded);
        QTimer timer;
        timer.setObjectName(QStringLiteral("t"));
        api->addObject(&timer);
        api->addObject(&timer);
        QVERIFY(api->objects().count(&timer) == 1 && added.count() == 2 && api->getObject<QTimer>() == &timer);
        QCOMPARE(*host.journal, (QStringList{"b objectAdded t", "a objectAdded t", "b objectAdded t",
                                             "a objectAdded t"}));
        host.journal->clear();
        api->removeObject(&timer);
        QVERIFY(!api->objects().contains(&timer) && !api->getObject<QTimer>());
        QVERIFY(added.count() == 2 && host.journal->isEmpty());
    }

    void pluginExceptions_data()
    {
        // What a plugin throws is logged with its name and counted as a failure of that one call; the host and
        // the other plugins go on. "t" throws in the operation of the row; "a" and "z" are well-behaved.
        QTest::addColumn<QString>("operation");
        QTest::addColumn<QStringList>("journal"); // the entries of the action, in order
        QTest::addColumn<QString>("outcome");

        QTest::newRow("init") << "init" << QStringList() << "a,z loaded";
        QTest::newRow("objectAdded") << "objectAdded"
                                     << QStringList{"z objectAdded o", "t objectAdded o", "a objectAdded o"} << "added";
        QTest::newRow("updaterEvent") << "updaterEvent" << QStringList{"z event 5", "t event 5", "a event 5"}
                                      << "accepted";
        QTest::newRow("backgroundModeActivated") << "background"
                                                 << QStringList{"a background 1", "t background 1", "z background 1"}
                                                 << "none unloaded";
        QTest::newRow("a slot called by name") << "slot" << QStringList() << "call failed";
        QTest::newRow("uninit") << "uninit" << QStringList{"z uninit", "z destroyed", "t uninit", "t destroyed",
                                                           "a uninit", "a destroyed"}
                                << "exit 4";
    }

    void pluginExceptions()
    {
        QFETCH(QString, operation);
        QFETCH(QStringList, journal);
        QFETCH(QString, outcome);
        Host host;
        host.add({"a||accept = {5}", "t||throw = {'" + operation + "'}", "z"});
        host.start();
        m_log.take();
        QVERIFY(host.manager->loadPlugins(false));
        if (operation != QLatin1String("init"))
            m_log.take(); // the announcements and the all-loaded event of the load
        UpdaterPluginApi* api = host.manager->api();
        host.journal->clear();
        QString result;
        if (operation == QLatin1String("init")) {
            result = host.loaded().join(',') + QStringLiteral(" loaded");
            QCOMPARE(host.record(QStringLiteral("t"))->errorString(), QStringLiteral("Its init() failed."));
        } else if (operation == QLatin1String("objectAdded")) {
            QObject object;
            object.setObjectName(QStringLiteral("o"));
            api->addObject(&object);
            result = api->objects().contains(&object) ? QStringLiteral("added") : QString();
            api->removeObject(&object);
        } else if (operation == QLatin1String("updaterEvent")) {
            result = api->postEvent(new UpdaterPluginCustomUrlClickedEvent(QUrl(QStringLiteral("x://y"))))
                ? QStringLiteral("accepted")
                : QString();
        } else if (operation == QLatin1String("background")) {
            api->activateBackgroundMode(true);
            QCoreApplication::sendPostedEvents();
            result = host.loaded().size() == 3 ? QStringLiteral("none unloaded") : host.loaded().join(',');
        } else if (operation == QLatin1String("slot")) {
            result = api->callInPlugin(QStringLiteral("t"), "boom") ? QStringLiteral("call succeeded") : QStringLiteral("call failed");
            QVERIFY(api->callInPlugin(QStringLiteral("a"), "ping"));
            journal = QStringList{"a ping"};
        } else if (operation == QLatin1String("uninit")) {
            result = QStringLiteral("exit %1").arg(runEventLoop([&] { host.manager->quit(4); }));
        }
        QCOMPARE(result, outcome);
        QCOMPARE(*host.journal, journal);
        const QString name = operation == QLatin1String("slot") ? QStringLiteral("boom")
            : operation == QLatin1String("background")          ? QStringLiteral("backgroundModeActivated")
                                                                : operation;
        QCOMPARE(m_log.lines(QStringLiteral("libupdater/PluginCalls")),
                 QStringList{QStringLiteral("5 Plugin t threw an exception in %1: t gave up in %2").arg(name, operation)});
    }

    void duplicateNames()
    {
        // A stray copy of a descriptor, and the same directory read twice: one record per name, the first file
        // read keeps it, the others are said and listed; shutdown frees each plugin object once.
        Host host;
        host.add({"a", "b"});
        host.dir.write(QStringLiteral("stray.updaterplugin"), QStringLiteral("name = 'a'\n"));
        host.start();
        const QString first = host.dir.path() + QStringLiteral("/a.updaterplugin");
        const QString copy = host.dir.path() + QStringLiteral("/stray.updaterplugin");
        QCOMPARE(log().filter(QRegularExpression("^[4-9] ")),
                 QStringList{QStringLiteral("4 Descriptor %1 ignored: plugin a is already described by %2").arg(copy, first)});
        host.manager->setPluginPath(host.dir.path());
        QCOMPARE(host.manager->plugins().size(), 2);
        QCOMPARE(host.manager->rejectedDescriptors(),
                 (QList<QPair<QString, QString>>{{copy, QStringLiteral("the name a is already taken by %1").arg(first)}}));
        QVERIFY(host.manager->loadPlugins(false));
        QCOMPARE(runEventLoop([&] { host.manager->quit(3); }), 3);
        QCOMPARE(host.journal->filter(QStringLiteral("destroyed")), (QStringList{"b destroyed", "a destroyed"}));
    }

    void sameLibraryUnderTwoNames()
    {
        // One file reached through two paths is mapped once and gives one plugin object: the second name is
        // refused, so that no two records ever own that object.
        Host host;
        host.add({"a"});
        host.dir.write(QStringLiteral("b.updaterplugin"), QStringLiteral("name = 'b'\ndata = { id = 'b' }\n"));
        QVERIFY(QFile::link(host.dir.library(QStringLiteral("a")), host.dir.library(QStringLiteral("b"))));
        QVERIFY(host.start()->loadPlugins(false));
        QCOMPARE(host.loaded(), QStringList{QStringLiteral("a")});
        QCOMPARE(host.record(QStringLiteral("b"))->errorString(),
                 QStringLiteral("Its library %1 is already loaded as plugin a.").arg(host.dir.library(QStringLiteral("b"))));
        QVERIFY(host.record(QStringLiteral("a"))->plugin());
        QCOMPARE(runEventLoop([&] { host.manager->quit(0); }), 0);
        QCOMPARE(host.journal->filter(QStringLiteral("destroyed")), QStringList{"a destroyed"});
    }

    void errorStrings_data()
    {
        QTest::addColumn<QStringList>("plugins");
        QTest::addColumn<QString>("library"); // copied over p's library: "none", "plain", "newer"
        QTest::addColumn<QString>("error");   // p's, a regular expression
        QTest::newRow("init fails with a reason") << QStringList{"p||init = false, error = 'no disk'"} << QString()
                                                  << "Its init\\(\\) failed: no disk";
        QTest::newRow("init fails silently") << QStringList{"p||init = false"} << QString() << "Its init\\(\\) failed\\.";
        QTest::newRow("missing dependency") << QStringList{"p|depends = {'a', 'b'}", "a||init = false", "b||init = false"}
                                            << QString() << "It needs a, b, which is not loaded\\.";
        QTest::newRow("no library") << QStringList{"p"} << "none" << "Cannot load .*/libp\\.so: .*";
        QTest::newRow("no plugin in the library") << QStringList{"p"} << "plain"
                                                  << ".*/libp\\.so holds no plugin object .*";
        // Built against a newer library: refused at load, with the dynamic loader's reason, instead of killing the
        // process at its first call.
        QTest::newRow("built against a newer library") << QStringList{"p"} << "newer"
                                                       << "Cannot load .*/libp\\.so: .*undefined symbol: "
                                                          "tvl_updater_function_of_a_newer_release.*";
    }

    void errorStrings()
    {
        QFETCH(QStringList, plugins);
        QFETCH(QString, library);
        QFETCH(QString, error);
        Host host;
        host.add(plugins);
        if (library == QLatin1String("none"))
            QFile::remove(host.dir.library(QStringLiteral("p")));
        else if (library == QLatin1String("plain"))
            host.dir.copy(QStringLiteral(PLAIN_OBJECT_PLUGIN), QStringLiteral("p"));
        else if (library == QLatin1String("newer"))
            host.dir.copy(QStringLiteral(NEWER_PLUGIN), QStringLiteral("p"));
        QVERIFY(host.start()->loadPlugins(false));
        const QString text = host.record(QStringLiteral("p"))->errorString();
        QVERIFY2(QRegularExpression(QRegularExpression::anchoredPattern(error)).match(text).hasMatch(), qPrintable(text));
        QVERIFY(!host.loaded().contains(QStringLiteral("p")) && _plugin_loading_error_string.isEmpty());
        // Loaded again once what was wrong is gone, the error is forgotten.
        if (library == QLatin1String("none")) {
            host.dir.copy(QStringLiteral(FIXTURE_PLUGIN), QStringLiteral("p"));
            QVERIFY(host.manager->loadPlugin(host.record(QStringLiteral("p"))));
            QVERIFY(host.loaded().contains(QStringLiteral("p")) && host.record(QStringLiteral("p"))->errorString().isEmpty());
        }
    }

    void apiMetaObject()
    {
        // The raw-pointer overload of postEvent comes first.
        const QMetaObject& meta = UpdaterPluginApi::staticMetaObject;
        const int raw = meta.indexOfMethod("postEvent(tvl::updater::UpdaterPluginEvent*)");
        const int shared = meta.indexOfMethod("postEvent(tvl::updater::UpdaterPluginEventPtr)");
        QVERIFY(raw >= 0 && shared == raw + 1);
    }

    void calls_data()
    {
        QTest::addColumn<QString>("call");        // "<plugin> <method> [<argument>]", "*" for call(); digits: an int
        QTest::addColumn<QStringList>("journal"); // empty: the call fails

        const auto row = [](const char* call, const QStringList& journal) { QTest::newRow(call) << call << journal; };
        row("a ping", {"a ping"});
        row("a ping 5", {"a ping 5"}); // the overload that fits
        row("* echo x", {"a echo x", "b echo x"});
        row("a run", {});    // only a prefix of runAll()
        row("a echo 7", {}); // no overload fits
        row("zz ping", {});
        row("c ping", {}); // not loaded
    }

    void calls()
    {
        QFETCH(QString, call);
        QFETCH(QStringList, journal);

        Host host;
        QVERIFY(host.load({"a", "b", "c||init = false"}));
        const QString plugin = call.section(' ', 0, 0), text = call.section(' ', 2);
        const QByteArray method = call.section(' ', 1, 1).toLatin1();
        bool isNumber = false;
        const int number = text.toInt(&isNumber);
        QGenericArgument argument;
        if (isNumber)
            argument = Q_ARG(int, number);
        else if (!text.isEmpty())
            argument = Q_ARG(QString, text);
        UpdaterPluginApi* api = host.manager->api();
        QCOMPARE(plugin == QLatin1String("*") ? api->call(method.constData(), argument)
                                              : api->callInPlugin(plugin, method.constData(), argument),
                 !journal.isEmpty());
        QCOMPARE(*host.journal, journal);
    }

    void options_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("application");
        QTest::addColumn<int>("options");

        using A = UpdaterPluginApi;
        const auto row = [](const char* arguments, const char* application, int options) {
            QTest::newRow(*arguments ? arguments : "none") << split(arguments) << QString(application) << options;
        };
        row("", "gui", 0);
        row("-s --uninstall", "gui", A::NoInteraction | A::NoRestart);
        row("--silent --no-footprint", "gui", A::NoInteraction | A::NoFootprint);
        row("--no-interaction --no-restart", "console", A::NoInteraction | A::NoRestart | A::NoGui);
    }

    void options()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, application);

        const testsupport::ChildResult child = testsupport::runScenario(application, arguments);
        QVERIFY2(child.exitedWith(0), child.err.constData());
        QTEST(child.out.trimmed().toInt(), "options");
    }

    void lastWindowClosed_data()
    {
        QTest::addColumn<bool>("accept");
        QTest::newRow("nobody accepts: quit") << false;
        QTest::newRow("the dependent accepts") << true;
    }

    void lastWindowClosed()
    {
        // Posted to every plugin, "top" first as it depends on "base", and to "base" whatever "top" did; unless
        // one of them accepts, the application quits.
        QFETCH(bool, accept);
        Host host;
        QVERIFY(host.load({QStringLiteral("top|depends = {'base'}|") + (accept ? "accept = {8}" : ""), "base"}, true));
        QVERIFY(!QApplication::quitOnLastWindowClosed());
        QWidget window;
        const int code = runEventLoop([&] {
            window.show();
            QTimer::singleShot(0, &window, &QWidget::close);
        }, accept ? 300 : 10000);
        QVERIFY(code == (accept ? LoopTimedOut : 0) && host.manager->closingDown() == !accept);
        QCOMPARE(host.journal->mid(0, 2), (QStringList{"top event 8", "base event 8"}));
    }
};

TEST_MAIN_WITH_SCENARIOS(TestPluginsManager, QApplication, printOptions)
#include "tst_pluginsmanager.moc"
