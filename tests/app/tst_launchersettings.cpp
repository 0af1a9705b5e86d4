// The launcher's settings end to end: the updater executable with the bundled settings,
// console and system-information plugins and copies of a fixture plugin, configured by a
// script that each case writes (and rewrites while the launcher runs). Every run has a home
// directory of its own.
#include <QtCore/QDeadlineTimer>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QProcess>
#include <QtCore/QSaveFile>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

namespace {

// Generous: under the sanitizers a start takes a good part of a second.
constexpr int Timeout = 60000;

const QString Ready = QStringLiteral("[console] type \"help\" for the commands");
const QString LoadedPrefix = QStringLiteral("[console] plugins loaded: ");
const QString Changed = QStringLiteral("[console] setting changed: ");

/// A home directory and a plugin directory of its own, and the configuration script.
class Home
{
public:
    QString path() const { return m_root.path(); }
    QString pluginDir() const { return path() + QStringLiteral("/plugins"); }
    QString script() const { return path() + QStringLiteral("/launcher.lua"); }

    /// The bundled settings, console and sysinfo plugins, and `fixtures`: copies of the fixture
    /// plugin under these names, each with the descriptor lines given ("name|lines").
    bool addPlugins(const QStringList& fixtures) const
    {
        if (!QDir(path()).mkpath(QStringLiteral("plugins")))
            return false;
        for (const QString& name : {QStringLiteral("settings"), QStringLiteral("console"), QStringLiteral("sysinfo")}) {
            if (!QFile::copy(QStringLiteral(BUNDLED_PLUGIN_DIR "/lib%1.so").arg(name), library(name))
                || !QFile::copy(QStringLiteral(BUNDLED_PLUGIN_DIR "/%1.updaterplugin").arg(name),
                                QStringLiteral("%1/%2.updaterplugin").arg(pluginDir(), name)))
                return false;
        }
        for (const QString& fixture : fixtures) {
            const QString name = fixture.section(QLatin1Char('|'), 0, 0);
            // Like every plugin that reads settings, they load after the settings plugin.
            const QString descriptor = QStringLiteral("name = \"%1\"\nsoft_depends = { \"settings\" }\n%2\n")
                                           .arg(name, fixture.section(QLatin1Char('|'), 1));
            if (!QFile::copy(QStringLiteral(FIXTURE_PLUGIN), library(name))
                || !write(QStringLiteral("%1/%2.updaterplugin").arg(pluginDir(), name), descriptor.toUtf8()))
                return false;
        }
        return true;
    }

    /// Replaces the configuration script as editors save: a new file renamed over the old one.
    bool writeScript(const QByteArray& text) const
    {
        QSaveFile file(script());
        return file.open(QIODevice::WriteOnly) && file.write(text) == text.size() && file.commit();
    }

    QProcessEnvironment environment() const
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
            environment.remove(QString::fromLatin1(name));
        environment.insert(QStringLiteral("HOME"), path());
        environment.insert(QStringLiteral("XDG_CONFIG_HOME"), path() + QStringLiteral("/config"));
        environment.insert(QStringLiteral("XDG_DATA_HOME"), path() + QStringLiteral("/data"));
        environment.insert(QStringLiteral("XDG_CACHE_HOME"), path() + QStringLiteral("/cache"));
        return environment;
    }

private:
    QString library(const QString& name) const { return QStringLiteral("%1/lib%2.so").arg(pluginDir(), name); }

    static bool write(const QString& path, const QByteArray& text)
    {
        QFile file(path);
        return file.open(QIODevice::WriteOnly) && file.write(text) == text.size();
    }

    QTemporaryDir m_root;
};

/// One run of the launcher without windows; killed if the case ends while it still runs.
class Run
{
public:
    Run(const Home& home, const QStringList& arguments)
    {
        m_process.setProcessEnvironment(home.environment());
        m_process.start(QStringLiteral(UPDATER_EXECUTABLE),
                        QStringList{QStringLiteral("--no-gui"), QStringLiteral("--plugin-dir=") + home.pluginDir()}
                            + arguments);
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
        while (!(channel == QProcess::StandardOutput ? out() : err()).contains(text)) {
            if (m_process.state() == QProcess::NotRunning || deadline.hasExpired()) {
                collect();
                return (channel == QProcess::StandardOutput ? out() : err()).contains(text);
            }
            QTest::qWait(10);
            collect();
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

    bool isRunning() const { return m_process.state() == QProcess::Running; }
    void write(const QByteArray& input) { m_process.write(input); }
    QString out() const { return QString::fromLocal8Bit(m_out); }
    QString err() const { return QString::fromLocal8Bit(m_err); }
    QStringList lines() const { return out().split(QLatin1Char('\n'), Qt::SkipEmptyParts); }

    /// The console's reports of changed settings, in order.
    QStringList changes() const { return lines().filter(Changed); }

    /// The plugins loaded, by name, as the console last listed them.
    QStringList loaded() const
    {
        const QStringList listed = lines().filter(LoadedPrefix);
        if (listed.isEmpty())
            return {};
        QStringList names = listed.last().mid(LoadedPrefix.size()).split(QStringLiteral(", "));
        names.sort();
        return names;
    }

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

} // namespace

class TestLauncherSettings : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void pluginSelection_data();
    void pluginSelection();
    void scriptEditedWhileRunning();
    void brokenScriptThenFixed();
    void missingConfiguration();
};

void TestLauncherSettings::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
}

void TestLauncherSettings::pluginSelection_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<QStringList>("loaded");

    const QStringList bundled{"console", "settings", "sysinfo"};
    QTest::newRow("nothing disabled") << QStringList() << QByteArray("plugins = { disable = {}, enable = {} }\n")
                                      << QStringList{"alpha", "beta"} + bundled;
    QTest::newRow("disabled on the command line") << QStringList{"--plugins.disable=alpha"}
                                                  << QByteArray("x = 1\n") << QStringList{"beta"} + bundled;
    QTest::newRow("disabled in the script") << QStringList() << QByteArray("plugins = { disable = { 'beta' } }\n")
                                            << QStringList{"alpha"} + bundled;
    QTest::newRow("two disabled in the script")
        << QStringList() << QByteArray("plugins = { disable = { 'alpha', 'sysinfo' } }\n")
        << QStringList{"beta", "console", "settings"};
    QTest::newRow("the command line hides the script")
        << QStringList{"--plugins.disable=alpha"} << QByteArray("plugins = { disable = { 'beta' } }\n")
        << QStringList{"beta"} + bundled;
    QTest::newRow("enabled in the script") << QStringList() << QByteArray("plugins = { enable = { 'delta' } }\n")
                                           << QStringList{"alpha", "beta", "console", "delta", "settings", "sysinfo"};
    QTest::newRow("enabled on the command line")
        << QStringList{"--plugins.enable=delta"} << QByteArray("x = 1\n")
        << QStringList{"alpha", "beta", "console", "delta", "settings", "sysinfo"};
}

void TestLauncherSettings::pluginSelection()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, script);

    Home home;
    QVERIFY(home.addPlugins({"alpha", "beta", "delta|autoload = false"}));
    QVERIFY(home.writeScript(script));
    Run run(home, arguments + QStringList{QStringLiteral("--config=") + home.script(), QStringLiteral("--quit-after=0")});
    QVERIFY2(run.finish(), qPrintable(run.report()));
    QVERIFY2(run.exitedWith(0), qPrintable(run.report()));
    QTEST(run.loaded(), "loaded");
}

void TestLauncherSettings::scriptEditedWhileRunning()
{
    Home home;
    QVERIFY(home.addPlugins({}));
    QVERIFY(home.writeScript("greeting = 'hello'\nstay = 1\ngone = true\n"));
    Run run(home, {QStringLiteral("--config=") + home.script()});
    QVERIFY2(run.waitFor(Ready), qPrintable(run.report()));
    QVERIFY(run.changes().isEmpty());

    QVERIFY(home.writeScript("greeting = 'bonjour'\nstay = 1\nadded = { 'x', 'y' }\n"));
    QVERIFY2(run.waitFor(Changed + QStringLiteral("gone = (nothing)")), qPrintable(run.report()));
    QStringList changes = run.changes();
    changes.sort();
    QCOMPARE(changes, (QStringList{Changed + QStringLiteral("added = [x, y]"),
                                   Changed + QStringLiteral("gone = (nothing)"),
                                   Changed + QStringLiteral("greeting = bonjour")}));

    // Saved again (the watch survived the rename): the next change is seen too.
    QVERIFY(home.writeScript("greeting = 'hallo'\nstay = 1\nadded = { 'x', 'y' }\n"));
    QVERIFY2(run.waitFor(Changed + QStringLiteral("greeting = hallo")), qPrintable(run.report()));

    run.write("quit\n");
    QVERIFY2(run.finish(), qPrintable(run.report()));
    QVERIFY2(run.exitedWith(0), qPrintable(run.report()));
    QCOMPARE(run.changes().size(), 4);
}

void TestLauncherSettings::brokenScriptThenFixed()
{
    Home home;
    QVERIFY(home.addPlugins({}));
    QVERIFY(home.writeScript("greeting = 'hello'\n"));
    Run run(home, {QStringLiteral("--config=") + home.script()});
    QVERIFY2(run.waitFor(Ready), qPrintable(run.report()));

    QVERIFY(home.writeScript("greeting = 'hello'\ngreeting = = 2\n"));
    QVERIFY2(run.waitFor(QStringLiteral("can't reload settings"), QProcess::StandardError), qPrintable(run.report()));
    // Each failed reload: the engine's error naming the file and the line, then the warning.
    const QStringList log = run.err().split(QLatin1Char('\n'));
    const QStringList errors = log.filter(QStringLiteral(" evaluate: "));
    const QStringList reloads = log.filter(QStringLiteral("can't reload settings"));
    QVERIFY2(!errors.isEmpty(), qPrintable(run.report()));
    for (const QString& line : errors) {
        QVERIFY2(line.contains(QStringLiteral(" Error ")) && line.contains(home.script() + QStringLiteral(":2:")),
                 qPrintable(line));
    }
    for (const QString& line : reloads)
        QVERIFY2(line.contains(QStringLiteral(" Warning ")) && line.contains(QStringLiteral(" onFileChanged: ")),
                 qPrintable(line));
    QVERIFY(run.changes().isEmpty());
    QVERIFY2(run.isRunning(), qPrintable(run.report()));

    QVERIFY(home.writeScript("greeting = 'fixed'\n"));
    QVERIFY2(run.waitFor(Changed + QStringLiteral("greeting = fixed")), qPrintable(run.report()));

    run.write("quit\n");
    QVERIFY2(run.finish(), qPrintable(run.report()));
    QVERIFY2(run.exitedWith(0), qPrintable(run.report()));
}

void TestLauncherSettings::missingConfiguration()
{
    Home home;
    QVERIFY(home.addPlugins({"alpha"}));
    const QString missing = home.path() + QStringLiteral("/missing.lua");
    Run run(home, {QStringLiteral("--config=") + missing, QStringLiteral("--quit-after=0")});
    QVERIFY2(run.finish(), qPrintable(run.report()));
    // The settings plugin is mandatory: without its configuration nothing else loads.
    QVERIFY2(run.exitedWith(126), qPrintable(run.report()));
    QVERIFY2(run.out().startsWith(QStringLiteral("FATAL: [Initialisation failed] The application has encountered a "
                                                 "problem while loading 'plugin settings'.\n")),
             qPrintable(run.report()));
    QVERIFY2(run.err().contains(QStringLiteral("The configuration file %1 does not exist").arg(missing)),
             qPrintable(run.report()));
    QVERIFY(run.loaded().isEmpty());
}

QTEST_GUILESS_MAIN(TestLauncherSettings)
#include "tst_launchersettings.moc"
