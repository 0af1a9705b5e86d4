// The updater executable as a user runs it: real processes over a plugin directory of their own (copies of
// the bundled plugins, and descriptors written here) and a home directory of their own, so that the
// preferences, the configuration script and the crash marker are the case's alone.
#include <libupdater/Updater.h>

#include <NginxServer.h>
#include <TestSupport.h>

#include <vantor/Keys.h>
#include <vantor/Operation.h>

#include <QtTest/QtTest>

#include <sys/stat.h>

#include <csignal>

using testsupport::writeFile;

namespace {

constexpr int Timeout = 60000; // under the sanitizers a start takes a good part of a second
const QByteArray Ready = "[console] type \"help\" for the commands\n";
const QByteArray Stopping = "[console] stopping\n";
const QByteArray CrashReported = "[console] the previous run did not end in order\n";
const QByteArray Changed = "[console] setting changed: ";

/// A home directory for the launchers that the case starts, with an empty plugin directory.
struct Home
{
    Home()
    {
        qputenv("HOME", dir.path().toLocal8Bit());
        for (const char* name : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME"})
            qunsetenv(name);
        QDir(dir.path()).mkdir("plugins");
    }
    QString path(const QString& name) const { return dir.filePath(name); }
    QString marker() const { return path(".config/Tarvel/updater/.crash_handler_marker"); }
    QByteArray log() const { return testsupport::readFile(path(".config/Tarvel/updater/updater.log")); }
    QStringList arguments(const QStringList& more) const { return QStringList{"--no-gui", "--plugin-dir=" + path("plugins")} + more; }
    testsupport::ChildResult run(const QStringList& more, const QByteArray& input = {}) const
    {
        return testsupport::runProcess(UPDATER_EXECUTABLE, arguments(more), {}, input);
    }
    /// Bundled plugins with their descriptors.
    void addBundled(const QStringList& names) const
    {
        for (const QString& name : names) {
            for (const QString& file : {"lib" + name + ".so", name + ".updaterplugin"})
                writeFile(path("plugins/" + file), testsupport::readFile(BUNDLED_PLUGIN_DIR "/" + file));
        }
    }
    /// A copy of the test's fixture plugin (tests/libupdater/fixtures) named `name`, doing what `data` says.
    void addFixture(const QString& name, const QByteArray& data, const QByteArray& descriptor = {}) const
    {
        writeFile(path("plugins/" + name + ".updaterplugin"),
                  "name = '" + name.toUtf8() + "'\n" + descriptor + "\ndata = { id = '" + name.toUtf8() + "', " + data + " }\n");
        writeFile(path("plugins/lib" + name + ".so"), testsupport::readFile(FIXTURE_PLUGIN));
    }
    /// A plugin of that descriptor, with a copy of the system-information plugin as its library unless without one.
    void add(const QString& name, const QByteArray& descriptor, bool withLibrary = true) const
    {
        writeFile(path("plugins/" + name + ".updaterplugin"), descriptor);
        if (withLibrary)
            writeFile(path("plugins/lib" + name + ".so"), testsupport::readFile(BUNDLED_PLUGIN_DIR "/libsysinfo.so"));
    }
    QTemporaryDir dir;
};

/// A launcher that the case talks to while it runs; killed if the case ends first.
struct Run : QProcess
{
    Run(const Home& home, const QStringList& arguments = {}) { start(UPDATER_EXECUTABLE, home.arguments(arguments)); }
    ~Run() override { kill(); waitForFinished(); }
    void collect() { out += readAllStandardOutput(); err += readAllStandardError(); }
    /// Waits until standard output (or error) holds `text`.
    bool waitFor(const QByteArray& text, QByteArray Run::*channel = &Run::out)
    {
        for (const QDeadlineTimer deadline(Timeout); !(this->*channel).contains(text); QTest::qWait(10)) {
            const bool over = state() == NotRunning || deadline.hasExpired();
            collect();
            if (over)
                return (this->*channel).contains(text);
        }
        return true;
    }
    /// Waits for the end: true when it exited with `code`, or with -1 when a signal killed it.
    bool ended(int code)
    {
        waitForFinished(Timeout);
        collect();
        return state() == NotRunning && (code < 0 ? exitStatus() == CrashExit : exitStatus() == NormalExit && exitCode() == code);
    }
    QByteArray out, err;
};

int exitCodeOf(const testsupport::ChildResult& result) { return result.exitCode; }
int exitCodeOf(const Run& run) { return run.exitCode(); }

template<typename Result> QByteArray report(const Result& result)
{
    return result.out + "--- standard error:\n" + result.err.right(4000) + "\n--- exit code " + QByteArray::number(exitCodeOf(result));
}

} // namespace

class TestUpdaterHost : public QObject
{
    Q_OBJECT

private slots:
    void listPlugins()
    {
        Home home;
        home.addBundled({"console", "sysinfo"});
        home.add("probe", "name = 'probe'\nmandatory = true\nrequired_by = { 'console' }\nreplace = { 'legacy' }\n");
        // Without a library: read and ordered, but not loaded.
        home.add("ghost", "name = 'ghost'\ndepends = 'sysinfo'\nsoft_depends = { 'console' }\nautoload = false\nunsafe = true\n", false);
        home.add("wide", "name = 'wide'\nneedGUI = true\n", false);
        home.add("nameless", "autoload = true\n", false);
        home.add("twin", "name = 'probe'\n", false);
        const auto run = home.run({"--list-plugins"});
        QVERIFY2(run.exitedWith(0), report(run).constData());
        const QStringList lines = QString::fromUtf8(run.out).split('\n');
        const QString dir = home.path("plugins");
        QCOMPARE(lines.mid(0, 10), QStringList({"Plugins in " + dir + ": 5",
                                                "  (dependencies: name = hard, name? = soft, injected or through a replacement)",
                                                "  console  flags=-  depends=probe?,sysinfo?",
                                                "  ghost  flags=not-autoload,unsafe  depends=console?,sysinfo",
                                                "  probe  flags=mandatory  depends=-  replaces=legacy",
                                                "  sysinfo  flags=-  depends=-",
                                                "  wide  flags=needGUI  depends=-",
                                                "Descriptors that give no plugin:",
                                                "  " + dir + "/nameless.updaterplugin: it sets no \"name\"",
                                                "  " + dir + "/twin.updaterplugin: the name probe is already taken by " + dir
                                                    + "/probe.updaterplugin"}));
        QVERIFY(lines.contains("[console] plugins loaded: probe, sysinfo, console"));
        // The load order, numbered, with the times spent and why a plugin is not loaded; a plugin that did not
        // load never ran its init.
        const QStringList order = lines.mid(lines.indexOf("Load order:") + 1, 7).replaceInStrings(QRegularExpression("\\d+\\.\\d{3} ms"), "T");
        QCOMPARE(order, QStringList({"  1. wide  not loaded  library T  init -",
                                     "       error: Cannot load " + dir + "/libwide.so: The shared library was not found.",
                                     "  2. probe  loaded  library T  init T", "  3. sysinfo  loaded  library T  init T",
                                     "  4. console  loaded  library T  init T", "  5. ghost  not loaded  library T  init -",
                                     "       error: Cannot load " + dir + "/libghost.so: The shared library was not found."}));
        QVERIFY(run.out.endsWith(Stopping));
        // The descriptors without a plugin are said in the log too.
        QVERIFY(run.err.contains("Descriptor " + dir.toUtf8() + "/nameless.updaterplugin gives no plugin: it sets no \"name\""));
    }

    void builtInIconsAreInTheLauncher()
    {
        // The icons that tv_icon() builds come from the launcher's own resources: a plugin gets every size the
        // icon table names, and the turtle-mode icon's four files across its two states.
        Home home;
        home.addFixture("probe", "icons = true");
        const auto run = home.run({"--list-plugins"});
        QVERIFY2(run.exitedWith(0), report(run).constData());
        QVERIFY2(run.err.contains("built-in icons 1:16,32 2:16,32,64 3:16,32 4:16,32,16,32 5:16,32 6:16,32 7:16,32 8:32"),
                 report(run).constData());
    }

    void loadOrderIsReproducible()
    {
        // The same plugins in two directories, their descriptor files in different orders: plugins of equal
        // standing come in the order of their names, and so do the dependencies of one plugin, not in the order
        // the files were read or their records happened to be allocated.
        QStringList orders;
        for (const QStringList& names : {QStringList{"p4", "p3", "p2", "p1", "main"}, QStringList{"main", "p1", "p2", "p3", "p4"}}) {
            Home home;
            home.addBundled({"console"});
            for (int i = 0; i < names.size(); ++i) {
                const QByteArray name = names[i].toUtf8();
                const QByteArray needs = name == "main" ? "soft_depends = { 'p1', 'p2', 'p3', 'p4', 'console' }" : "soft_depends = { 'console' }";
                writeFile(home.path(QString("plugins/%1.updaterplugin").arg(i)), "name = '" + name + "'\n" + needs + "\n");
                writeFile(home.path("plugins/lib" + names[i] + ".so"), testsupport::readFile(BUNDLED_PLUGIN_DIR "/libsysinfo.so"));
            }
            for (int start = 0; start < 2; ++start) {
                const auto run = home.run({"--list-plugins"});
                QVERIFY2(run.exitedWith(0), report(run).constData());
                const QStringList lines = QString::fromUtf8(run.out).split('\n');
                orders.append(lines.mid(lines.indexOf("Load order:") + 1, 6).replaceInStrings(QRegularExpression("  loaded  library .*"), "").join(' '));
            }
        }
        orders.removeDuplicates();
        QCOMPARE(orders, QStringList{"  1. console   2. p1   3. p2   4. p3   5. p4   6. main"});
    }

    void quitsAsAsked_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<QByteArrayList>("expected");
        QTest::newRow("quit on standard input") << QStringList() << QByteArray("\n   help \t\n\nquit\n")
                                                << QByteArrayList{"[console] commands: quit, plugins, services, help\n", "[console] quitting, as asked\n"};
        // Standard input ends at once: only the timer stops this run.
        QTest::newRow("--quit-after") << QStringList{"--quit-after=0"} << QByteArray()
                                      << QByteArrayList{"[console] updater " + QByteArray(tvl::updater::UPDATER_VERSION) + " ("
                                                            + tvl::updater::UPDATER_REVISION + ") started\n",
                                                        "[console] plugins loaded: sysinfo, console\n", Ready,
                                                        "[console] quitting after 0 second(s), as asked\n"};
    }

    void quitsAsAsked()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, input);
        QFETCH(QByteArrayList, expected);
        Home home;
        home.addBundled({"console", "sysinfo"});
        const auto run = home.run(arguments, input);
        QVERIFY2(run.exitedWith(0), report(run).constData());
        for (const QByteArray& line : expected)
            QVERIFY2(run.out.contains(line), report(run).constData());
        QVERIFY(!run.out.contains(CrashReported));
        QVERIFY(run.out.endsWith(Stopping));
    }

    void mandatoryPluginFails_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("plugin");
        QTest::addColumn<QByteArray>("logged");
        QTest::newRow("library missing") << QStringList() << "core" << QByteArray("plugin 'core' isn't loaded");
        // The settings plugin is mandatory: without its configuration nothing else loads.
        QTest::newRow("--config= a missing file") << QStringList{"--config=/nonexistent/launcher.lua"} << "settings"
                                                  << QByteArray("The configuration file /nonexistent/launcher.lua does not exist");
        QTest::newRow("init throws") << QStringList() << "core" << QByteArray("Plugin core threw an exception in init: core gave up in init");
        QTest::newRow("--config= a directory") << QStringList{"--config=/"} << "settings"
                                               << QByteArray("The configuration file / is not a regular file");
        QTest::newRow("--config= a device") << QStringList{"--config=/dev/zero"} << "settings"
                                            << QByteArray("The configuration file /dev/zero is not a regular file");
        // Read, a FIFO without a writer would hold the start up for ever.
        QTest::newRow("--config= a FIFO") << QStringList{"--config=%fifo"} << "settings"
                                          << QByteArray("The configuration file %fifo is not a regular file");
    }

    void mandatoryPluginFails()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, plugin);
        QFETCH(QByteArray, logged);
        Home home;
        home.addBundled({"settings", "console", "sysinfo"});
        if (QByteArray(QTest::currentDataTag()) == "library missing")
            home.add("core", "name = 'core'\nmandatory = true\n", false);
        else if (plugin == "core")
            home.addFixture("core", "throw = { 'init' }", "mandatory = true");
        const QString fifo = home.path("launcher.fifo");
        if (arguments.value(0).contains("%fifo")) {
            QCOMPARE(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
            arguments.replaceInStrings("%fifo", fifo);
            logged.replace("%fifo", fifo.toUtf8());
        }
        const auto run = home.run(arguments);
        QVERIFY2(run.exitedWith(126), report(run).constData());
        const QString fatal = "FATAL: [Initialisation failed] The application has encountered a problem while loading 'plugin " + plugin
            + "'.\nIf the problem persists, please contact our customers service.\n";
        QVERIFY2(("\n" + run.out).contains("\n" + fatal.toUtf8()) && run.out.count("FATAL:") == 1, report(run).constData());
        QVERIFY2(run.err.contains(logged), report(run).constData());
        QVERIFY(!run.out.contains("plugins loaded"));
        QVERIFY(!QFile::exists(home.marker())); // it ended in order, though it failed
    }

    void stopAndNextStart_data()
    {
        QTest::addColumn<int>("signal");
        QTest::newRow("SIGTERM: in order") << int(SIGTERM);
        QTest::newRow("SIGHUP: in order") << int(SIGHUP);
        QTest::newRow("SIGKILL: crashed") << int(SIGKILL);
    }

    void stopAndNextStart()
    {
        QFETCH(int, signal);
        const bool orderly = signal != SIGKILL;
        Home home;
        home.addBundled({"console", "sysinfo"});
        {
            Run run(home);
            QVERIFY2(run.waitFor(Ready), report(run).constData());
            QVERIFY(QFile::exists(home.marker()));
            QCOMPARE(::kill(pid_t(run.processId()), signal), 0);
            QVERIFY2(run.ended(orderly ? 0 : -1), report(run).constData());
            QCOMPARE(run.out.endsWith(Stopping), orderly);
            QCOMPARE(run.err.contains("Stopping on signal " + QByteArray::number(signal)), orderly);
            QCOMPARE(QFile::exists(home.marker()), !orderly);
        }
        // The next start tells a crash, once: that run itself ended in order.
        for (const bool crashed : {!orderly, false}) {
            const auto next = home.run({"--quit-after=0"});
            QVERIFY2(next.exitedWith(0), report(next).constData());
            QCOMPARE(next.out.contains(CrashReported), crashed);
        }
        QVERIFY(!QFile::exists(home.marker()));
    }

    void stopAtOnce_data()
    {
        // The user who asks twice, or whose request the stuck main thread cannot take up, does not wait for
        // the plugins: the launcher ends within a second, its log written and its marker gone (no crash).
        QTest::addColumn<QByteArray>("plugin"); // the fixture's data
        QTest::addColumn<QList<int>>("sent");
        QTest::addColumn<QByteArray>("logged");
        QTest::newRow("second SIGTERM while a plugin does not finish its uninit")
            << QByteArray("uninit_delay = -1") << QList<int>{SIGTERM, SIGTERM}
            << QByteArray("Stopping at once on signal 15: a second termination signal arrived while the launcher was stopping");
        QTest::newRow("SIGINT then SIGTERM") << QByteArray("uninit_delay = -1") << QList<int>{SIGINT, SIGTERM}
                                             << QByteArray("Stopping at once on signal 15");
        QTest::newRow("SIGTERM while an init() never returns")
            << QByteArray("hang_in_init = true") << QList<int>{SIGTERM}
            << QByteArray("Stopping at once on signal 15: the launcher did not start stopping within a second of the signal");
    }

    void stopAtOnce()
    {
        QFETCH(QByteArray, plugin);
        QFETCH(QList<int>, sent);
        QFETCH(QByteArray, logged);
        Home home;
        home.addBundled({"console"});
        home.addFixture("stuck", plugin, "soft_depends = { 'console' }");
        Run run(home);
        QVERIFY2(run.waitFor(plugin.startsWith("hang") ? QByteArray("Loading plugin stuck") : Ready,
                             plugin.startsWith("hang") ? &Run::err : &Run::out),
                 report(run).constData());
        QVERIFY(QFile::exists(home.marker()));
        QElapsedTimer clock;
        for (qsizetype i = 0; i < sent.size(); ++i) {
            // Two signals of one kind sent at once merge into one: the second waits for the first to arrive.
            if (i > 0)
                QVERIFY2(run.waitFor("Stopping on signal", &Run::err), report(run).constData());
            clock.start();
            QCOMPARE(::kill(pid_t(run.processId()), sent[i]), 0);
        }
        QVERIFY2(run.ended(128 + sent.last()), report(run).constData());
        // A bound on the watchdog, not a speed target: without it the process never ends.
        QVERIFY2(clock.elapsed() < 4000, qPrintable(QString::number(clock.elapsed())));
        QVERIFY2(home.log().contains(logged), home.log().right(2000).constData());
        QVERIFY(!QFile::exists(home.marker()));
        QFile::remove(home.path("plugins/stuck.updaterplugin"));
        const auto next = home.run({"--quit-after=0"});
        QVERIFY2(next.exitedWith(0) && !next.out.contains(CrashReported), report(next).constData());
    }

    void markerBesideARunningLauncher()
    {
        // Listing the plugins, or a second launcher without windows, beside a running one: no crash is told, and
        // the running launcher's marker stays until it ends.
        Home home;
        home.addBundled({"console", "sysinfo"});
        {
            Run first(home);
            QVERIFY2(first.waitFor(Ready), report(first).constData());
            const QByteArray marker = testsupport::readFile(home.marker());
            for (const QStringList& arguments : {QStringList{"--list-plugins"}, QStringList{"--quit-after=0"}}) {
                const auto other = home.run(arguments);
                QVERIFY2(other.exitedWith(0), report(other).constData());
                QVERIFY2(!other.out.contains(CrashReported) && !other.err.contains("Previous execution crashed"), report(other).constData());
                QVERIFY(QFile::exists(home.marker()));
                QCOMPARE(testsupport::readFile(home.marker()), marker);
            }
            first.write("quit\n");
            QVERIFY2(first.ended(0), report(first).constData());
        }
        QVERIFY(!QFile::exists(home.marker()));
    }

    void restartLeavesNoCrash()
    {
        // A plugin asks for a restart: the marker goes before the new launcher starts, so that one tells no
        // crash; what plugins add to its command line comes along, except from one whose prepareToRestart() threw.
        Home home;
        home.addBundled({"console"});
        home.addFixture("again", "restart_after = 100, restart = { '--quit-after=1' }", "soft_depends = { 'console' }");
        home.addFixture("thrower", "throw = { 'restart' }, restart = { '--never' }");
        QProcess first;
        first.setStandardOutputFile(home.path("out.txt"), QIODevice::Append); // shared with the detached successor
        first.setStandardErrorFile(home.path("err.txt"), QIODevice::Append);
        first.start(UPDATER_EXECUTABLE, home.arguments({}));
        QVERIFY(first.waitForFinished(Timeout) && first.exitStatus() == QProcess::NormalExit && first.exitCode() == 0);
        for (const QDeadlineTimer deadline(Timeout); testsupport::readFile(home.path("out.txt")).count(Stopping) < 2 && !deadline.hasExpired();)
            QTest::qWait(50);
        const QByteArray out = testsupport::readFile(home.path("out.txt"));
        const QByteArray err = testsupport::readFile(home.path("err.txt"));
        QVERIFY2(out.count(Stopping) == 2 && out.count("[console] updater ") == 2, out.constData());
        QVERIFY2(!out.contains(CrashReported) && !err.contains("Previous execution crashed"), err.constData());
        QVERIFY2(err.contains("   --restart   --quit-after=1\n"), err.constData());
        QVERIFY2(err.contains("Plugin thrower threw an exception in prepareToRestart: thrower gave up in restart"), err.constData());
        // The successor removes its marker as it exits, after it said it stops: it is not a child to wait for.
        QTRY_VERIFY_WITH_TIMEOUT(!QFile::exists(home.marker()), Timeout);
    }

    void quarantine()
    {
        // A plugin that kills the launcher while it starts: named at the next start, and after the second run in
        // a row left out (persistently) until its library changes. A mandatory plugin is never left out.
        Home home;
        home.addBundled({"settings", "console"});
        home.addFixture("bad", "crash_in_init = true", "soft_depends = { 'settings', 'console' }");
        const QByteArray said = "[console] it ended while plugin bad was starting (%1 run(s) in a row)\n";
        for (int run = 1; run <= 2; ++run) {
            const auto crashed = home.run({"--quit-after=0"});
            QVERIFY2(crashed.finished && crashed.status == QProcess::CrashExit, report(crashed).constData());
            QCOMPARE(crashed.out.contains(QByteArray(said).replace("%1", "1")), run == 2);
            QCOMPARE(crashed.err.contains("The previous run ended while plugin 'bad' was starting (1 run(s) in a row)"), run == 2);
        }
        const auto skipped = home.run({"--quit-after=0"});
        QVERIFY2(skipped.exitedWith(0), report(skipped).constData());
        QVERIFY2(skipped.out.contains(QByteArray(said).replace("%1", "2")), report(skipped).constData());
        QVERIFY2(skipped.err.contains("Plugin bad crashed the launcher 2 runs in a row while starting: quarantined"), report(skipped).constData());
        QVERIFY2(skipped.err.contains("Plugin bad not loaded: it is in \"plugins.quarantine\""), report(skipped).constData());
        QVERIFY(testsupport::readFile(home.path(".config/Tarvel/updater/updater.ini")).contains("quarantine=bad:"));

        const auto listed = home.run({"--list-plugins"});
        QVERIFY2(listed.exitedWith(0), report(listed).constData());
        QVERIFY2(QRegularExpression("\\d\\. bad  quarantined  .*\\n       error: Quarantined: ").match(QString::fromUtf8(listed.out)).hasMatch(),
                 report(listed).constData());

        // A new build of the library is tried again.
        QFile library(home.path("plugins/libbad.so"));
        QVERIFY(library.open(QIODevice::ReadWrite) && library.setFileTime(QDateTime::currentDateTime().addSecs(60), QFileDevice::FileModificationTime));
        library.close();
        const auto retried = home.run({"--quit-after=0"});
        QVERIFY2(retried.finished && retried.status == QProcess::CrashExit, report(retried).constData());

        // Mandatory: loaded again whatever happened before.
        home.addFixture("bad", "crash_in_init = true", "soft_depends = { 'settings' }\nmandatory = true");
        for (int run = 1; run <= 3; ++run) {
            const auto crashed = home.run({"--quit-after=0"});
            QVERIFY2(crashed.finished && crashed.status == QProcess::CrashExit, report(crashed).constData());
        }
    }

    void exceptionsInEventHandlers()
    {
        // A plugin slot run by the event loop throws: the application object catches it, names the plugin, and
        // the launcher goes on to its orderly end.
        Home home;
        home.addBundled({"console"});
        home.addFixture("thrower", "throw = { 'timer' }", "soft_depends = { 'console' }");
        const auto run = home.run({"--quit-after=1"});
        QVERIFY2(run.exitedWith(0) && run.out.endsWith(Stopping), report(run).constData());
        QVERIFY2(run.err.contains("Plugin thrower threw an exception in an event handler: thrower gave up in timer"),
                 report(run).constData());
    }

    void addedPluginDirectory()
    {
        // --add-plugin-dir adds plugins to the bundled ones; a name already taken keeps its first descriptor.
        Home home;
        home.addBundled({"console"});
        QTemporaryDir extra;
        writeFile(extra.filePath("libsysinfo.so"), testsupport::readFile(BUNDLED_PLUGIN_DIR "/libsysinfo.so"));
        writeFile(extra.filePath("sysinfo.updaterplugin"), testsupport::readFile(BUNDLED_PLUGIN_DIR "/sysinfo.updaterplugin"));
        writeFile(extra.filePath("console.updaterplugin"), "name = 'console'\n");
        const auto run = home.run({"--add-plugin-dir=" + extra.path(), "--list-plugins"});
        QVERIFY2(run.exitedWith(0), report(run).constData());
        QVERIFY2(run.out.startsWith("Plugins in " + home.path("plugins").toUtf8() + ", " + extra.path().toUtf8() + ": 2\n"), report(run).constData());
        QVERIFY2(run.out.contains("[console] plugins loaded: sysinfo, console\n"), report(run).constData());
        QVERIFY2(run.out.contains("  " + extra.filePath("console.updaterplugin").toUtf8() + ": the name console is already taken by "),
                 report(run).constData());
    }

    void installsUpdatesAndPlaysAGame()
    {
        // The launcher's main job, as a user runs it: a game published to a repository that nginx serves,
        // installed by itself, updated when a new version comes, and started from the console.
        Home home;
        home.addBundled({"settings", "console", "network", "engine"});
        QByteArray publicKey, secretKey;
        tvl::vantor::Keys::generate(&publicKey, &secretKey);
        const auto publish = [&](const QByteArray& version) {
            writeFile(home.path("game-" + version + "/bin/game"), "#!/bin/sh\necho \"game " + version + " says $*\"\n");
            QFile::setPermissions(home.path("game-" + version + "/bin/game"), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
            tvl::vantor::Options options;
            options.sourceDirectory = home.path("game-" + version);
            options.repositoryDirectory = home.path("repository");
            options.project = "demo";
            options.version = QString::fromUtf8(version);
            options.secretKey = secretKey;
            tvl::vantor::Operation operation(tvl::vantor::Operation::Publish, options);
            QSignalSpy done(&operation, &tvl::vantor::Operation::finished);
            operation.start();
            return done.wait(Timeout) && operation.result()->success;
        };
        QVERIFY(publish("1.0"));
        testsupport::NginxServer server(home.path("repository"));
        QString error;
        QVERIFY2(server.start(&error), qPrintable(error));
        const QString script = writeFile(home.path("launcher.lua"),
            "projects = { demo = { name = 'Demo', url = '" + server.url().toString().toUtf8() + "', dir = '" + home.path("games/demo").toUtf8()
                + "',\n keys = { '" + tvl::vantor::Keys::encodePublicKey(publicKey).toUtf8() + "' }, executable = 'bin/game',\n"
                  " arguments = command_line_args('game-(.*)', '--%(name)=%(value)') } }\n"
                  "update = { automatic = true, check_interval_minutes = 0.02 }\n");
        Run run(home, {"--config=" + script, "--game-level=3"});
        QVERIFY2(run.waitFor("[console] demo: done, version 1.0\n"), report(run).constData());
        QVERIFY(publish("2.0"));
        QVERIFY2(run.waitFor("[console] demo: done, version 1.0 -> 2.0\n"), report(run).constData());
        run.write("play demo\n");
        QVERIFY2(run.waitFor("game 2.0 says --level=3\n"), report(run).constData());
        run.write("quit\n");
        QVERIFY2(run.ended(0), report(run).constData());
        QVERIFY2(!run.err.contains(" Error ["), report(run).constData());
    }

    void emptyPluginDirectory()
    {
        Home home;
        Run run(home);
        QVERIFY2(run.waitFor("NO PLUGIN\n", &Run::err), report(run).constData());
        QVERIFY2(QRegularExpression(" Warning \\[[^\n]* NO PLUGIN\n").match(QString::fromUtf8(run.err)).hasMatch(), run.err.constData());
        // Nothing to load is no reason to stop: it waits until it is told to.
        QTest::qWait(200);
        QCOMPARE(run.state(), QProcess::Running);
        QCOMPARE(::kill(pid_t(run.processId()), SIGTERM), 0);
        QVERIFY2(run.ended(0), report(run).constData());
    }

    void pluginSelection_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("script");
        QTest::addColumn<QString>("loaded");
        QTest::newRow("disabled on the command line, which hides the script")
            << QStringList{"--plugins.disable=alpha"} << QByteArray("plugins = { disable = { 'beta' } }\n") << "beta, console, settings, sysinfo";
        QTest::newRow("two disabled in the script")
            << QStringList() << QByteArray("plugins = { disable = { 'alpha', 'sysinfo' } }\n") << "beta, console, settings";
        QTest::newRow("enabled in the script")
            << QStringList() << QByteArray("plugins = { enable = { 'delta' } }\n") << "alpha, beta, console, delta, settings, sysinfo";
        QTest::newRow("enabled on the command line")
            << QStringList{"--plugins.enable=delta"} << QByteArray("x = 1\n") << "alpha, beta, console, delta, settings, sysinfo";
        QTest::newRow("two disabled on the command line, a list with commas")
            << QStringList{"--plugins.disable=alpha, sysinfo"} << QByteArray("x = 1\n") << "beta, console, settings";
    }

    void pluginSelection()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, script);
        Home home;
        home.addBundled({"settings", "console", "sysinfo"});
        // Like every plugin that reads settings, they load after the settings plugin.
        for (const QString name : {"alpha", "beta"})
            home.add(name, "name = '" + name.toUtf8() + "'\nsoft_depends = { 'settings' }\n");
        home.add("delta", "name = 'delta'\nsoft_depends = { 'settings' }\nautoload = false\n");
        const auto run = home.run(arguments + QStringList{"--config=" + writeFile(home.path("launcher.lua"), script), "--quit-after=0"});
        QVERIFY2(run.exitedWith(0), report(run).constData());
        const QString prefix = "[console] plugins loaded: ";
        QStringList loaded = QString::fromUtf8(run.out).split('\n').filter(prefix).value(0).mid(prefix.size()).split(", ");
        loaded.sort();
        QTEST(loaded.join(", "), "loaded");
    }

    void configurationEditedWhileRunning()
    {
        Home home;
        home.addBundled({"settings", "console"});
        const QString script = home.path("launcher.lua");
        // Saved as editors save: a new file renamed over the old one.
        const auto save = [&script](const QByteArray& text) {
            QSaveFile file(script);
            return file.open(QIODevice::WriteOnly) && file.write(text) == text.size() && file.commit();
        };
        QVERIFY(save("greeting = 'hello'\nstay = 1\ngone = true\n"));
        Run run(home, {"--config=" + script});
        QVERIFY2(run.waitFor(Ready), report(run).constData());
        QVERIFY(save("greeting = 'bonjour'\nstay = 1\nadded = { 'x', 'y' }\n"));
        QVERIFY2(run.waitFor(Changed + "gone = (nothing)\n"), report(run).constData());
        // A broken script changes nothing, and the watch goes on.
        QVERIFY(save("greeting = = 2\n"));
        QVERIFY2(run.waitFor("can't reload settings", &Run::err), report(run).constData());
        QVERIFY(save("greeting = 'hallo'\nstay = 1\nadded = { 'x', 'y' }\n"));
        QVERIFY2(run.waitFor(Changed + "greeting = hallo\n"), report(run).constData());
        run.write("quit\n");
        QVERIFY2(run.ended(0), report(run).constData());
        QStringList changes = QString::fromUtf8(run.out).split('\n').filter(Changed);
        changes.sort();
        QCOMPARE(changes, QStringList({Changed + "added = [x, y]", Changed + "gone = (nothing)", Changed + "greeting = bonjour",
                                       Changed + "greeting = hallo"}));
    }
};

QTEST_GUILESS_MAIN(TestUpdaterHost)
#include "tst_updaterhost.moc"
