// The updater executable as a user runs it. Every case starts real processes over a plugin
// directory of its own (copies of the bundled plugins, plus descriptors written here) and with a
// home directory of its own, so that the preferences, the log file and the crash marker are the
// case's alone.
#include <libupdater/Updater.h>

#include <QtCore/QDeadlineTimer>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QProcess>
#include <QtCore/QRegularExpression>
#include <QtCore/QSysInfo>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <csignal>

namespace {

// Generous: under the sanitizers a start takes a good part of a second.
constexpr int Timeout = 60000;

const QString Ready = QStringLiteral("[console] type \"help\" for the commands");
const QString Stopping = QStringLiteral("[console] stopping");
const QString CrashReported = QStringLiteral("[console] the previous run did not end in order");
const QString Fatal = QStringLiteral(
    "FATAL: [Initialisation failed] The application has encountered a problem while loading 'plugin core'.\n"
    "If the problem persists, please contact our customers service.\n");

enum class Gui { None, Offscreen };
enum class Preferences { XdgConfigHome, HomeOnly };

/// A home directory of its own, with a runtime directory and an (initially empty) plugin directory.
class Home
{
public:
    Home()
    {
        QDir root(m_root.path());
        root.mkpath(QStringLiteral("config"));
        root.mkpath(QStringLiteral("plugins"));
        root.mkpath(QStringLiteral("run"));
        // Qt ignores a runtime directory that others may enter.
        QFile::setPermissions(runtimeDir(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    QString path() const { return m_root.path(); }
    QString configDir() const { return path() + QStringLiteral("/config"); }
    QString runtimeDir() const { return path() + QStringLiteral("/run"); }
    QString pluginDir() const { return path() + QStringLiteral("/plugins"); }
    QString preferencesDir(Preferences preferences = Preferences::XdgConfigHome) const
    {
        const QString base =
            preferences == Preferences::XdgConfigHome ? configDir() : path() + QStringLiteral("/.config");
        return base + QStringLiteral("/Tarvel/updater");
    }
    QString logFile(Preferences preferences = Preferences::XdgConfigHome) const
    {
        return preferencesDir(preferences) + QStringLiteral("/updater.log");
    }
    QString markerFile() const { return preferencesDir() + QStringLiteral("/.crash_handler_marker"); }

    QString log() const
    {
        QFile file(logFile());
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    }

    /// Copies the console and system-information plugins, each with its descriptor.
    bool addBundledPlugins() const
    {
        for (const QString& name : {QStringLiteral("console"), QStringLiteral("sysinfo")}) {
            if (!copyLibrary(bundledLibrary(name), name)
                || !QFile::copy(QStringLiteral(BUNDLED_PLUGIN_DIR "/%1.updaterplugin").arg(name),
                                QStringLiteral("%1/%2.updaterplugin").arg(pluginDir(), name)))
                return false;
        }
        return true;
    }

    static QString bundledLibrary(const QString& name)
    {
        return QStringLiteral(BUNDLED_PLUGIN_DIR "/lib%1.so").arg(name);
    }

    /// Puts `source` into the plugin directory as the library of plugin `name`.
    bool copyLibrary(const QString& source, const QString& name) const
    {
        return QFile::copy(source, QStringLiteral("%1/lib%2.so").arg(pluginDir(), name));
    }

    bool writePluginFile(const QString& fileName, const QByteArray& content) const
    {
        QFile file(pluginDir() + QLatin1Char('/') + fileName);
        return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
    }

    bool writeDescriptor(const QString& name, const QByteArray& text) const
    {
        return writePluginFile(name + QStringLiteral(".updaterplugin"), text);
    }

    QProcessEnvironment environment(Gui gui, Preferences preferences) const
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM", "XDG_CONFIG_HOME"})
            environment.remove(QString::fromLatin1(name));
        if (gui == Gui::Offscreen)
            environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        if (preferences == Preferences::XdgConfigHome)
            environment.insert(QStringLiteral("XDG_CONFIG_HOME"), configDir());
        environment.insert(QStringLiteral("HOME"), path());
        environment.insert(QStringLiteral("XDG_DATA_HOME"), path() + QStringLiteral("/data"));
        environment.insert(QStringLiteral("XDG_CACHE_HOME"), path() + QStringLiteral("/cache"));
        environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtimeDir());
        return environment;
    }

private:
    QTemporaryDir m_root;
};

/// One run of the updater; killed if the case ends while it still runs.
class Run
{
public:
    Run(const Home& home, const QStringList& arguments, Gui gui = Gui::None,
        Preferences preferences = Preferences::XdgConfigHome)
    {
        m_process.setProcessEnvironment(home.environment(gui, preferences));
        QObject::connect(&m_process, &QProcess::readyReadStandardOutput, &m_process,
                         [this] { m_out += m_process.readAllStandardOutput(); });
        QObject::connect(&m_process, &QProcess::readyReadStandardError, &m_process,
                         [this] { m_err += m_process.readAllStandardError(); });
        m_process.start(QStringLiteral(UPDATER_EXECUTABLE), arguments);
        m_process.waitForStarted(Timeout);
    }

    ~Run()
    {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.kill();
            m_process.waitForFinished(Timeout);
        }
    }

    Q_DISABLE_COPY(Run)

    /// Waits until standard output (or error) holds `text`; false if the process ended first.
    bool waitFor(const QString& text, QProcess::ProcessChannel channel = QProcess::StandardOutput)
    {
        const QDeadlineTimer deadline(Timeout);
        const QByteArray& buffer = channel == QProcess::StandardOutput ? m_out : m_err;
        while (!QString::fromLocal8Bit(buffer).contains(text)) {
            if (m_process.state() == QProcess::NotRunning || deadline.hasExpired()) {
                collect();
                return QString::fromLocal8Bit(buffer).contains(text);
            }
            QTest::qWait(10);
        }
        return true;
    }

    bool finish()
    {
        const bool finished = m_process.state() == QProcess::NotRunning || m_process.waitForFinished(Timeout);
        collect();
        return finished;
    }

    bool exitedWith(int code) const
    {
        return m_process.state() == QProcess::NotRunning && m_process.exitStatus() == QProcess::NormalExit
            && m_process.exitCode() == code;
    }

    bool killedBySignal() const
    {
        return m_process.state() == QProcess::NotRunning && m_process.exitStatus() == QProcess::CrashExit;
    }

    bool isRunning() const { return m_process.state() == QProcess::Running; }
    void write(const QByteArray& input) { m_process.write(input); }
    bool signal(int number) const { return ::kill(pid_t(m_process.processId()), number) == 0; }
    qint64 pid() const { return m_process.processId(); }

    QString out() const { return QString::fromLocal8Bit(m_out); }
    QString err() const { return QString::fromLocal8Bit(m_err); }
    QStringList outLines() const { return out().split(QLatin1Char('\n'), Qt::SkipEmptyParts); }

    /// What went wrong, for a failed check.
    QString report() const
    {
        return QStringLiteral("state %1, exit status %2, exit code %3\n--- stdout:\n%4--- stderr:\n%5")
            .arg(int(m_process.state()))
            .arg(int(m_process.exitStatus()))
            .arg(m_process.exitCode())
            .arg(out(), err().right(4000));
    }

private:
    void collect()
    {
        m_out += m_process.readAllStandardOutput();
        m_err += m_process.readAllStandardError();
    }

    QProcess m_process;
    QByteArray m_out;
    QByteArray m_err;
};

QStringList pluginArguments(const Home& home, QStringList arguments = {})
{
    arguments.append(QStringLiteral("--plugin-dir=") + home.pluginDir());
    return arguments;
}

/// A load time as the reports print it, in microseconds; -1 for "-", -2 for anything else.
qint64 microseconds(const QString& text)
{
    static const QRegularExpression time(QStringLiteral("^(\\d+)\\.(\\d{3}) ms$"));
    if (text == QLatin1String("-"))
        return -1;
    const QRegularExpressionMatch match = time.match(text);
    return match.hasMatch() ? match.captured(1).toLongLong() * 1000 + match.captured(2).toLongLong() : -2;
}

} // namespace

class TestUpdaterHost : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void listPlugins();
    void profile();
    void consoleCommands_data();
    void consoleCommands();
    void quitAfter();
    void mandatoryPluginFails_data();
    void mandatoryPluginFails();
    void stopAndNextStart_data();
    void stopAndNextStart();
    void emptyPluginDirectory();
    void logFile_data();
    void logFile();
    void logLevel_data();
    void logLevel();
    void secondStartHandsOver();
};

void TestUpdaterHost::listPlugins()
{
    Home home;
    QVERIFY(home.addBundledPlugins());
    QVERIFY(home.copyLibrary(Home::bundledLibrary(QStringLiteral("sysinfo")), QStringLiteral("probe")));
    QVERIFY(home.writeDescriptor(QStringLiteral("probe"), "name = \"probe\"\n"
                                                          "mandatory = true\n"
                                                          "required_by = { \"console\" }\n"
                                                          "replace = { \"legacy\" }\n"));
    // No library: read and ordered, but it cannot load.
    QVERIFY(home.writeDescriptor(QStringLiteral("ghost"), "name = \"ghost\"\n"
                                                          "depends = \"sysinfo\"\n"
                                                          "soft_depends = { \"console\" }\n"
                                                          "autoload = false\n"
                                                          "unsafe = true\n"));
    QVERIFY(home.writeDescriptor(QStringLiteral("wide"), "name = \"wide\"\nneedGUI = true\n"));
    QVERIFY(home.writeDescriptor(QStringLiteral("nameless"), "autoload = true\n"));

    Run run(home, pluginArguments(home, {QStringLiteral("--list-plugins"), QStringLiteral("--no-gui")}));
    QVERIFY2(run.finish(), qPrintable(run.report()));
    QVERIFY2(run.exitedWith(0), qPrintable(run.report()));
    const QStringList lines = run.outLines();

    const qsizetype header = lines.indexOf(QStringLiteral("Plugins in %1: 5").arg(home.pluginDir()));
    QVERIFY2(header >= 0, qPrintable(run.report()));
    const QStringList descriptors{
        QStringLiteral("  console  flags=-  depends=probe?,sysinfo?"),
        QStringLiteral("  ghost  flags=not-autoload,unsafe  depends=console?,sysinfo"),
        QStringLiteral("  probe  flags=mandatory  depends=-  replaces=legacy"),
        QStringLiteral("  sysinfo  flags=-  depends=-"),
        QStringLiteral("  wide  flags=needGUI  depends=-"),
    };
    QCOMPARE(lines.mid(header + 2, descriptors.size()), descriptors);

    const qsizetype orderAt = lines.indexOf(QStringLiteral("Load order:"));
    QVERIFY2(orderAt > header, qPrintable(run.report()));
    static const QRegularExpression entry(
        QStringLiteral("^  (\\d+)\\. (\\S+)  (loaded|not loaded)  library (.+)  init (.+)$"));
    QHash<QString, int> position;
    QHash<QString, bool> loaded;
    for (qsizetype i = orderAt + 1; i < lines.size(); ++i) {
        const QRegularExpressionMatch match = entry.match(lines.at(i));
        if (!match.hasMatch())
            break;
        const QString name = match.captured(2);
        QCOMPARE(match.captured(1).toInt(), position.size() + 1);
        position.insert(name, match.captured(1).toInt());
        loaded.insert(name, match.captured(3) == QLatin1String("loaded"));
        const qint64 library = microseconds(match.captured(4));
        const qint64 init = microseconds(match.captured(5));
        // A library that could not be loaded still took its time to look for; init never ran.
        QVERIFY2(library >= 0, qPrintable(lines.at(i)));
        QVERIFY2(loaded.value(name) ? init >= 0 : init == -1, qPrintable(lines.at(i)));
    }
    QCOMPARE(position.size(), 5);
    const QHash<QString, bool> expectedStates{
        {QStringLiteral("console"), true}, {QStringLiteral("probe"), true}, {QStringLiteral("sysinfo"), true},
        {QStringLiteral("ghost"), false},  {QStringLiteral("wide"), false},
    };
    QCOMPARE(loaded, expectedStates);
    // Everything a plugin depends on, however, comes before it.
    const QList<QPair<QString, QString>> before{
        {QStringLiteral("sysinfo"), QStringLiteral("console")},
        {QStringLiteral("probe"), QStringLiteral("console")},
        {QStringLiteral("sysinfo"), QStringLiteral("ghost")},
        {QStringLiteral("console"), QStringLiteral("ghost")},
    };
    for (const auto& [first, second] : before)
        QVERIFY2(position.value(first) < position.value(second),
                 qPrintable(first + QStringLiteral(" after ") + second));

    QVERIFY2(lines.contains(QStringLiteral("[console] plugins loaded: probe, sysinfo, console")),
             qPrintable(run.report()));
    QCOMPARE(lines.last(), Stopping);
}

void TestUpdaterHost::profile()
{
    Home home;
    QVERIFY(home.addBundledPlugins());
    Run run(home, pluginArguments(home, {QStringLiteral("--profile"), QStringLiteral("--no-gui")}));
    run.write("quit\n");
    QVERIFY2(run.finish(), qPrintable(run.report()));
    QVERIFY2(run.exitedWith(0), qPrintable(run.report()));

    const QStringList lines = run.outLines();
    QVERIFY(!lines.contains(QStringLiteral("Load order:")));
    const qsizetype at = lines.indexOf(QStringLiteral("Load times:"));
    QVERIFY2(at >= 0, qPrintable(run.report()));
    static const QRegularExpression entry(QStringLiteral("^  (\\S+)  library (.+)  init (.+)$"));
    static const QRegularExpression total(QStringLiteral("^  total (.+)$"));
    QStringList names;
    qint64 sum = 0;
    qsizetype i = at + 1;
    for (; i < lines.size(); ++i) {
        const QRegularExpressionMatch match = entry.match(lines.at(i));
        if (!match.hasMatch())
            break;
        names.append(match.captured(1));
        const qint64 library = microseconds(match.captured(2));
        const qint64 init = microseconds(match.captured(3));
        QVERIFY2(library >= 0 && init >= 0, qPrintable(lines.at(i)));
        sum += library + init;
    }
    names.sort();
    QCOMPARE(names, QStringList({QStringLiteral("console"), QStringLiteral("sysinfo")}));
    QVERIFY2(i < lines.size(), qPrintable(run.report()));
    const QRegularExpressionMatch match = total.match(lines.at(i));
    QVERIFY2(match.hasMatch(), qPrintable(lines.at(i)));
    QCOMPARE(microseconds(match.captured(1)), sum);
}

void TestUpdaterHost::consoleCommands_data()
{
    QTest::addColumn<QByteArrayList>("input");
    QTest::addColumn<QString>("expected");

    QTest::newRow("quit") << QByteArrayList{"quit\n"} << QStringLiteral("[console] quitting, as asked");
    QTest::newRow("help") << QByteArrayList{"help\n", "quit\n"}
                          << QStringLiteral("[console] commands: quit, plugins, services, help");
    QTest::newRow("services")
        << QByteArrayList{"services\n", "quit\n"}
        << QStringLiteral("[console] services: tvl::updater::UpdaterLogCollector \"logCollector\", "
                          "SystemInfo \"systemInfo\"");
    QTest::newRow("unknown command") << QByteArrayList{"dance\n", "quit\n"}
                                     << QStringLiteral("[console] unknown command \"dance\"; type \"help\"");
    QTest::newRow("command split across writes")
        << QByteArrayList{"qu", "it\n"} << QStringLiteral("[console] quitting, as asked");
    QTest::newRow("several lines in one write, padded")
        << QByteArrayList{"\n   help \t\n\nquit\n"}
        << QStringLiteral("[console] commands: quit, plugins, services, help");
}

void TestUpdaterHost::consoleCommands()
{
    QFETCH(QByteArrayList, input);
    QFETCH(QString, expected);

    Home home;
    QVERIFY(home.addBundledPlugins());
    Run run(home, pluginArguments(home, {QStringLiteral("--no-gui")}));
    QVERIFY2(run.waitFor(Ready), qPrintable(run.report()));
    for (const QByteArray& chunk : std::as_const(input)) {
        run.write(chunk);
        QTest::qWait(50);
    }
    QVERIFY2(run.finish(), qPrintable(run.report()));
    QVERIFY2(run.exitedWith(0), qPrintable(run.report()));
    const QStringList lines = run.outLines();
    QVERIFY2(lines.contains(expected), qPrintable(run.report()));
    QCOMPARE(lines.last(), Stopping);
}

void TestUpdaterHost::quitAfter()
{
    Home home;
    QVERIFY(home.addBundledPlugins());
    // Standard input stays open: nothing but the timer ends this run.
    Run run(home, pluginArguments(home, {QStringLiteral("--no-gui"), QStringLiteral("--quit-after=0")}));
    QVERIFY2(run.finish(), qPrintable(run.report()));
    QVERIFY2(run.exitedWith(0), qPrintable(run.report()));

    const QStringList lines = run.outLines();
    QCOMPARE(lines.first(), QStringLiteral("[console] updater %1 (%2) started")
                                .arg(QString::fromLatin1(tvl::updater::UPDATER_VERSION),
                                     QString::fromLatin1(tvl::updater::UPDATER_REVISION)));
    for (const QString& line : {
             QStringLiteral("[console] service offered: tvl::updater::UpdaterLogCollector \"logCollector\""),
             QStringLiteral("[console] service offered: SystemInfo \"systemInfo\""),
             QStringLiteral("[console] plugins loaded: sysinfo, console"),
             Ready,
             QStringLiteral("[console] quitting after 0 second(s), as asked"),
         }) {
        QVERIFY2(lines.contains(line), qPrintable(line + QLatin1Char('\n') + run.out()));
    }
    const QString system = QStringLiteral("[console] system: %1, ").arg(QSysInfo::prettyProductName());
    QVERIFY2(std::any_of(lines.cbegin(), lines.cend(), [&](const QString& line) { return line.startsWith(system); }),
             qPrintable(run.report()));
    QVERIFY(!lines.contains(CrashReported));
    QCOMPARE(lines.last(), Stopping);
}

void TestUpdaterHost::mandatoryPluginFails_data()
{
    QTest::addColumn<QString>("library"); // what lies where the mandatory plugin's library belongs
    QTest::addColumn<QStringList>("arguments");

    const QStringList noGui{QStringLiteral("--no-gui")};
    QTest::newRow("missing library, --no-gui") << QString() << noGui;
    QTest::newRow("not a Qt plugin, --no-gui") << QStringLiteral(NOT_A_PLUGIN_LIBRARY) << noGui;
    QTest::newRow("not a shared library, --no-gui") << QStringLiteral("text") << noGui;
    // Without any display the launcher runs without windows by itself.
    QTest::newRow("missing library, no display") << QString() << QStringList();
}

void TestUpdaterHost::mandatoryPluginFails()
{
    QFETCH(QString, library);
    QFETCH(QStringList, arguments);

    Home home;
    QVERIFY(home.addBundledPlugins());
    QVERIFY(home.writeDescriptor(QStringLiteral("core"), "name = \"core\"\nmandatory = true\n"));
    if (library == QLatin1String("text"))
        QVERIFY(home.writePluginFile(QStringLiteral("libcore.so"), "core: not a library\n"));
    else if (!library.isEmpty())
        QVERIFY(home.copyLibrary(library, QStringLiteral("core")));

    Run run(home, pluginArguments(home, arguments));
    QVERIFY2(run.finish(), qPrintable(run.report()));
    QVERIFY2(run.exitedWith(126), qPrintable(run.report()));
    const QString out = run.out();
    QVERIFY2(out.startsWith(Fatal) || out.contains(QLatin1Char('\n') + Fatal), qPrintable(run.report()));
    QCOMPARE(out.count(QStringLiteral("FATAL:")), 1);
    // The launcher ended in order, even though it failed.
    QVERIFY(!QFile::exists(home.markerFile()));
}

void TestUpdaterHost::stopAndNextStart_data()
{
    QTest::addColumn<int>("signalNumber");
    QTest::addColumn<bool>("orderly");

    QTest::newRow("SIGTERM") << int(SIGTERM) << true;
    QTest::newRow("SIGINT") << int(SIGINT) << true;
    QTest::newRow("SIGKILL") << int(SIGKILL) << false;
}

void TestUpdaterHost::stopAndNextStart()
{
    QFETCH(int, signalNumber);
    QFETCH(bool, orderly);

    Home home;
    QVERIFY(home.addBundledPlugins());
    const QStringList arguments = pluginArguments(home, {QStringLiteral("--no-gui")});
    {
        Run run(home, arguments);
        QVERIFY2(run.waitFor(Ready), qPrintable(run.report()));
        QVERIFY(QFile::exists(home.markerFile()));
        QVERIFY(run.signal(signalNumber));
        QVERIFY2(run.finish(), qPrintable(run.report()));
        if (orderly) {
            QVERIFY2(run.exitedWith(0), qPrintable(run.report()));
            QCOMPARE(run.outLines().last(), Stopping);
            QVERIFY2(run.err().contains(QStringLiteral("Stopping on signal %1").arg(signalNumber)),
                     qPrintable(run.report()));
            QVERIFY(!QFile::exists(home.markerFile()));
        } else {
            QVERIFY2(run.killedBySignal(), qPrintable(run.report()));
            QVERIFY(QFile::exists(home.markerFile()));
        }
    }

    const QStringList quitting = arguments + QStringList{QStringLiteral("--quit-after=0")};
    {
        Run next(home, quitting);
        QVERIFY2(next.finish(), qPrintable(next.report()));
        QVERIFY2(next.exitedWith(0), qPrintable(next.report()));
        QCOMPARE(next.outLines().contains(CrashReported), !orderly);
    }
    QCOMPARE(home.log().count(QStringLiteral("Previous execution crashed")), orderly ? 0 : 1);

    // A crash is reported once: the run that reported it ended in order.
    Run third(home, quitting);
    QVERIFY2(third.finish(), qPrintable(third.report()));
    QVERIFY2(third.exitedWith(0), qPrintable(third.report()));
    QVERIFY(!third.outLines().contains(CrashReported));
    QVERIFY(!QFile::exists(home.markerFile()));
}

void TestUpdaterHost::emptyPluginDirectory()
{
    Home home;
    Run run(home, pluginArguments(home, {QStringLiteral("--no-gui")}));
    QVERIFY2(run.waitFor(QStringLiteral("NO PLUGIN"), QProcess::StandardError), qPrintable(run.report()));
    const QStringList errorLines = run.err().split(QLatin1Char('\n'));
    const auto logged = std::find_if(errorLines.cbegin(), errorLines.cend(),
                                     [](const QString& line) { return line.endsWith(QLatin1String("NO PLUGIN")); });
    QVERIFY2(logged != errorLines.cend() && logged->contains(QLatin1String(" Warning ")), qPrintable(run.report()));

    // Nothing to load is no reason to stop: it waits until it is told to.
    QTest::qWait(200);
    QVERIFY2(run.isRunning(), qPrintable(run.report()));
    QVERIFY(run.signal(SIGTERM));
    QVERIFY2(run.finish(), qPrintable(run.report()));
    QVERIFY2(run.exitedWith(0), qPrintable(run.report()));
    QVERIFY(run.out().isEmpty());
    QVERIFY(home.log().contains(QLatin1String("NO PLUGIN")));
    QVERIFY(!QFile::exists(home.markerFile()));
}

void TestUpdaterHost::logFile_data()
{
    QTest::addColumn<int>("preferences");
    QTest::newRow("XDG_CONFIG_HOME") << int(Preferences::XdgConfigHome);
    QTest::newRow("HOME only") << int(Preferences::HomeOnly);
}

void TestUpdaterHost::logFile()
{
    QFETCH(int, preferences);
    const auto where = Preferences(preferences);
    const auto elsewhere = where == Preferences::HomeOnly ? Preferences::XdgConfigHome : Preferences::HomeOnly;

    Home home;
    QVERIFY(home.addBundledPlugins());
    Run run(home, pluginArguments(home, {QStringLiteral("--no-gui"), QStringLiteral("--quit-after=0")}),
            Gui::None, where);
    const qint64 pid = run.pid();
    QVERIFY2(run.finish(), qPrintable(run.report()));
    QVERIFY2(run.exitedWith(0), qPrintable(run.report()));

    QFile file(home.logFile(where));
    QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(file.fileName()));
    const QString log = QString::fromUtf8(file.readAll());
    QVERIFY2(log.contains(QStringLiteral("(pid %1)").arg(pid)), qPrintable(log));
    // From the start to the orderly end.
    QVERIFY2(log.contains(QLatin1String("Reading console.updaterplugin")), qPrintable(log));
    QVERIFY2(log.contains(QLatin1String("Unload sysinfo")), qPrintable(log));
    QVERIFY(!QFile::exists(home.logFile(elsewhere)));
}

void TestUpdaterHost::logLevel_data()
{
    QTest::addColumn<QString>("argument");
    QTest::addColumn<QStringList>("logged");
    QTest::addColumn<QStringList>("dropped");

    // Levels as the records name them on standard error.
    const auto levels = [](std::initializer_list<const char*> names) {
        QStringList list;
        for (const char* name : names)
            list.append(QStringLiteral(" %1 [").arg(QLatin1String(name)));
        return list;
    };
    QTest::newRow("default") << QString() << levels({"Notice", "Warning", "Error"}) << levels({"Trace"});
    QTest::newRow("0") << QStringLiteral("--log-level=0") << levels({"Trace", "Notice", "Error"}) << QStringList();
    QTest::newRow("4") << QStringLiteral("--log-level=4") << levels({"Warning", "Error"})
                       << levels({"Trace", "Notice"});
    QTest::newRow("5") << QStringLiteral("--log-level=5") << levels({"Error"}) << levels({"Notice", "Warning"});
    QTest::newRow("not a number") << QStringLiteral("--log-level=loud") << levels({"Notice"}) << levels({"Trace"});
}

void TestUpdaterHost::logLevel()
{
    QFETCH(QString, argument);
    QFETCH(QStringList, logged);
    QFETCH(QStringList, dropped);

    Home home;
    QVERIFY(home.addBundledPlugins());
    // Without a library: a warning and errors, but not mandatory.
    QVERIFY(home.writeDescriptor(QStringLiteral("ghost"), "name = \"ghost\"\n"));
    QStringList arguments{QStringLiteral("--no-gui"), QStringLiteral("--quit-after=0")};
    if (!argument.isEmpty())
        arguments.append(argument);
    Run run(home, pluginArguments(home, arguments));
    QVERIFY2(run.finish(), qPrintable(run.report()));
    QVERIFY2(run.exitedWith(0), qPrintable(run.report()));
    for (const QString& level : std::as_const(logged))
        QVERIFY2(run.err().contains(level), qPrintable(level + QLatin1Char('\n') + run.err()));
    for (const QString& level : std::as_const(dropped))
        QVERIFY2(!run.err().contains(level), qPrintable(level + QLatin1Char('\n') + run.err()));
}

void TestUpdaterHost::secondStartHandsOver()
{
    Home home;
    QVERIFY(home.addBundledPlugins());
    Run first(home, pluginArguments(home), Gui::Offscreen);
    QVERIFY2(first.waitFor(Ready), qPrintable(first.report()));

    Run second(home, {QStringLiteral("--profile")}, Gui::Offscreen);
    QVERIFY2(second.finish(), qPrintable(second.report()));
    QVERIFY2(second.exitedWith(0), qPrintable(second.report()));
    QVERIFY2(second.out().isEmpty(), qPrintable(second.report()));
    QVERIFY2(first.waitFor(QStringLiteral("Started again with"), QProcess::StandardError), qPrintable(first.report()));
    QVERIFY2(first.err().contains(QLatin1String("--profile")), qPrintable(first.report()));

    first.write("quit\n");
    QVERIFY2(first.finish(), qPrintable(first.report()));
    QVERIFY2(first.exitedWith(0), qPrintable(first.report()));
    QVERIFY(!QFile::exists(home.markerFile()));
}

QTEST_GUILESS_MAIN(TestUpdaterHost)
#include "tst_updaterhost.moc"
