// The updater executable as a user runs it: real processes over a plugin directory of their own (copies of
// the bundled plugins, and descriptors written here) and a home directory of their own, so that the
// preferences, the configuration script and the crash marker are the case's alone.
#include <libupdater/Updater.h>

#include <TestSupport.h>

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

template<typename Result> QByteArray report(const Result& result) { return result.out + "--- standard error:\n" + result.err.right(4000); }

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
        const auto run = home.run({"--list-plugins"});
        QVERIFY2(run.exitedWith(0), report(run).constData());
        const QStringList lines = QString::fromUtf8(run.out).split('\n');
        QCOMPARE(lines.mid(0, 7), QStringList({"Plugins in " + home.path("plugins") + ": 5",
                                               "  (dependencies: name = hard, name? = soft, injected or through a replacement)",
                                               "  console  flags=-  depends=probe?,sysinfo?",
                                               "  ghost  flags=not-autoload,unsafe  depends=console?,sysinfo",
                                               "  probe  flags=mandatory  depends=-  replaces=legacy",
                                               "  sysinfo  flags=-  depends=-",
                                               "  wide  flags=needGUI  depends=-"}));
        QVERIFY(lines.contains("[console] plugins loaded: probe, sysinfo, console"));
        // The load order, numbered, with the times spent; a plugin that did not load never ran its init.
        QStringList order = lines.mid(lines.indexOf("Load order:") + 1, 5).replaceInStrings(QRegularExpression("\\d+\\.\\d{3} ms"), "T");
        for (int i = 0; i < order.size(); ++i)
            QVERIFY2(order[i].startsWith(QString("  %1. ").arg(i + 1)), qPrintable(order[i]));
        QVERIFY(order.indexOf(QRegularExpression(".*ghost.*")) > order.indexOf(QRegularExpression(".*console.*")));
        order.replaceInStrings(QRegularExpression("^  \\d\\. "), "");
        order.sort();
        QCOMPARE(order, QStringList({"console  loaded  library T  init T", "ghost  not loaded  library T  init -",
                                     "probe  loaded  library T  init T", "sysinfo  loaded  library T  init T",
                                     "wide  not loaded  library T  init -"}));
        QVERIFY(run.out.endsWith(Stopping));
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
        if (plugin == "core")
            home.add("core", "name = 'core'\nmandatory = true\n", false);
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
