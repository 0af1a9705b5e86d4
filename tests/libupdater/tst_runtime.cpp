#include <libupdater/Updater.h>

#include <QtTest/QtTest>
#include <QtWidgets/QApplication>
#include <QtWidgets/QMessageBox>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QStyle>

using namespace tvl::updater;

namespace {

struct HelperRun
{
    int exitCode = -1;
    QProcess::ExitStatus exitStatus = QProcess::CrashExit;
    QByteArray out;
    // This library's log records, as "<level> <source> <function>: <message>".
    QStringList logs;
};

HelperRun runHelper(const QString& scenario, const QStringList& arguments,
                    const QProcessEnvironment& extra = QProcessEnvironment())
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("RUNTIME_HELPER_SCENARIO"), scenario);
    environment.insert(extra);
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(RUNTIME_HELPER), arguments);
    HelperRun run;
    if (!process.waitForFinished(120'000)) {
        process.kill();
        process.waitForFinished();
        return run;
    }
    run.exitCode = process.exitCode();
    run.exitStatus = process.exitStatus();
    run.out = process.readAllStandardOutput();
    const QList<QByteArray> lines = process.readAllStandardError().split('\n');
    for (const QByteArray& line : lines) {
        if (line.startsWith("LOG ") && line.contains(" libupdater/Updater "))
            run.logs.append(QString::fromUtf8(line.mid(4)));
    }
    return run;
}

QString crashLog(const QString& function, const QString& level, const QString& message)
{
    return QStringLiteral("%1 libupdater/Updater %2: %3").arg(level, function, message);
}

const QString cleanupLine = crashLog(QStringLiteral("tv_cleanup_crash_handler"), QStringLiteral("1"),
                                     QStringLiteral("tv_cleanup_crash_handler()"));

} // namespace

class tst_Runtime : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void defaultPath_data();
    void defaultPath();
    void applicationName_data();
    void applicationName();
    void defaultTranslatorChain();
    void systemStyle();
    void updaterArguments();

    void crashDetection_data();
    void crashDetection();
    void crashHandler_data();
    void crashHandler();

    void restart_data();
    void restart();

    void criticalErrorConsole_data();
    void criticalErrorConsole();
    void criticalErrorMessageBox_data();
    void criticalErrorMessageBox();

private:
    QString path(const QString& name) const { return m_root.filePath(name); }
    QString expand(QString text) const { return text.replace(QLatin1Char('@'), m_root.path() + QLatin1Char('/')); }

    QTemporaryDir m_root;
};

void tst_Runtime::initTestCase()
{
    QVERIFY(m_root.isValid());
    QStandardPaths::setTestModeEnabled(true);
    // The helpers and defaultPath() see a home of their own.
    for (const char* name : {"home", "data", "cache", "config", "tmp"})
        QVERIFY(QDir(m_root.path()).mkpath(QString::fromLatin1(name)));
    qputenv("HOME", QFile::encodeName(path(QStringLiteral("home"))));
    qputenv("XDG_DATA_HOME", QFile::encodeName(path(QStringLiteral("data"))));
    qputenv("XDG_CACHE_HOME", QFile::encodeName(path(QStringLiteral("cache"))));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(path(QStringLiteral("config"))));
    qputenv("TMPDIR", QFile::encodeName(path(QStringLiteral("tmp"))));
}

void tst_Runtime::defaultPath_data()
{
    // `variable` is an environment variable, or a key of user-dirs.dirs (XDG_..._DIR) whose
    // value is written there; "@" stands for the test's root directory.
    QTest::addColumn<QString>("variable");
    QTest::addColumn<QString>("value");
    QTest::addColumn<int>("location");
    QTest::addColumn<QString>("expected");

    QTest::newRow("desktop") << QString() << QString() << int(DesktopServices::DesktopLocation) << "@home/Desktop";
    QTest::newRow("documents") << "XDG_DOCUMENTS_DIR" << "/srv/docs/" << int(DesktopServices::DocumentsLocation) << "/srv/docs";
    QTest::newRow("fonts") << QString() << QString() << int(DesktopServices::FontsLocation) << "@data/fonts";
    QTest::newRow("applications") << QString() << QString() << int(DesktopServices::ApplicationsLocation) << "@data/applications";
    QTest::newRow("music") << "XDG_MUSIC_DIR" << "$HOME/Songs" << int(DesktopServices::MusicLocation) << "@home/Songs";
    QTest::newRow("movies") << QString() << QString() << int(DesktopServices::MoviesLocation) << "@home/Videos";
    QTest::newRow("pictures") << QString() << QString() << int(DesktopServices::PicturesLocation) << "@home/Pictures";
    QTest::newRow("temp") << QString() << QString() << int(DesktopServices::TempLocation) << "@tmp";
    QTest::newRow("home") << QString() << QString() << int(DesktopServices::HomeLocation) << "@home";
    QTest::newRow("data is shared") << QString() << QString() << int(DesktopServices::DataLocation) << "@data";
    QTest::newRow("cache is shared") << QString() << QString() << int(DesktopServices::CacheLocation) << "@cache";
    QTest::newRow("root desktop") << "XDG_DESKTOP_DIR" << "/" << int(DesktopServices::DesktopLocation) << "";
    QTest::newRow("root home") << "HOME" << "/" << int(DesktopServices::HomeLocation) << "";
    QTest::newRow("data //") << "XDG_DATA_HOME" << "//" << int(DesktopServices::DataLocation) << "";
    QTest::newRow("cache ///") << "XDG_CACHE_HOME" << "/var/c///" << int(DesktopServices::CacheLocation) << "/var/c";
    QTest::newRow("unknown") << QString() << QString() << 11 << "";
    QTest::newRow("negative") << QString() << QString() << -1 << "";
}

void tst_Runtime::defaultPath()
{
    QFETCH(QString, variable);
    QFETCH(QString, value);
    QFETCH(int, location);
    QFETCH(QString, expected);

    // Test mode would hide the XDG variables.
    QStandardPaths::setTestModeEnabled(false);
    const auto restore = qScopeGuard([this] {
        QStandardPaths::setTestModeEnabled(true);
        qputenv("HOME", QFile::encodeName(path(QStringLiteral("home"))));
        qputenv("XDG_DATA_HOME", QFile::encodeName(path(QStringLiteral("data"))));
        qputenv("XDG_CACHE_HOME", QFile::encodeName(path(QStringLiteral("cache"))));
        QFile::remove(path(QStringLiteral("config/user-dirs.dirs")));
    });
    if (variable.endsWith(QLatin1String("_DIR"))) {
        QFile userDirs(path(QStringLiteral("config/user-dirs.dirs")));
        QVERIFY(userDirs.open(QIODevice::WriteOnly));
        userDirs.write(QStringLiteral("%1=\"%2\"\n").arg(variable, value).toUtf8());
    } else if (!variable.isEmpty()) {
        qputenv(variable.toLatin1().constData(), QFile::encodeName(value));
    }
    expected = expand(expected);
    if (location == DesktopServices::TempLocation)
        expected = QFileInfo(expected).canonicalFilePath();

    const QList<QPair<QString, QString>> names = {{QStringLiteral("Org"), QStringLiteral("App")},
                                                  {QString(), QStringLiteral("Other App")}};
    for (const auto& [organization, application] : names) {
        QCoreApplication::setOrganizationName(organization);
        QCoreApplication::setApplicationName(application);
        QCOMPARE(tv_default_path(location), expected);
        QCOMPARE(QCoreApplication::organizationName(), organization);
        QCOMPARE(QCoreApplication::applicationName(), application);
    }
}

void tst_Runtime::applicationName_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("spaces removed") << "My Updater App" << QByteArray("MyUpdaterApp");
    QTest::newRow("cut to 15 bytes") << "abcdefghijklmnopqrst" << QByteArray("abcdefghijklmno");
    QTest::newRow("spaces removed before the cut") << " a b c d e f g h i j k l m n o p " << QByteArray("abcdefghijklmno");
    QTest::newRow("only spaces, not tabs") << "a\tb c" << QByteArray("a\tbc");
    QTest::newRow("non-ASCII") << QStringLiteral("Grüße Welt") << QByteArray("Gr\xc3\xbc\xc3\x9f" "eWelt");
}

void tst_Runtime::applicationName()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, expected);

    const auto readName = [] {
        QFile comm(QStringLiteral("/proc/self/comm"));
        return comm.open(QIODevice::ReadOnly) ? comm.readAll().chopped(1) : QByteArray();
    };
    const QByteArray original = readName();
    const QString qtName = QCoreApplication::applicationName();

    tv_set_application_name(name);
    const QByteArray result = readName();
    tv_set_application_name(QString::fromLocal8Bit(original));

    QCOMPARE(result, expected);
    QCOMPARE(QCoreApplication::applicationName(), qtName);
}

void tst_Runtime::defaultTranslatorChain()
{
    QTranslator first;
    QTranslator second;
    QCOMPARE(tv_default_translator(&first), nullptr);
    QCOMPARE(tv_default_translator(&second), &first);
    QCOMPARE(tv_default_translator(nullptr), &second);
    QCOMPARE(tv_default_translator(nullptr), nullptr);
}

void tst_Runtime::systemStyle()
{
    // In a QApplication: taken once, a later style change is not seen.
    const QString started = QApplication::style()->objectName();
    QVERIFY(!started.isEmpty());
    QCOMPARE(tv_system_style(), started);
    QApplication::setStyle(started.compare(QLatin1String("windows"), Qt::CaseInsensitive) == 0
                               ? QStringLiteral("Fusion") : QStringLiteral("Windows"));
    QVERIFY(QApplication::style()->objectName() != started);
    QCOMPARE(tv_system_style(), started);

    // In a console application: empty, every time.
    const HelperRun console = runHelper(QStringLiteral("style"), {});
    QCOMPARE(console.exitCode, 0);
    QCOMPARE(console.out, QByteArray("[]\n[]\n"));
}

void tst_Runtime::updaterArguments()
{
    const HelperRun run = runHelper(QStringLiteral("arguments"),
                                    {QStringLiteral("-s"), QStringLiteral("--no-footprint"),
                                     QStringLiteral("--lang=de"), QStringLiteral("file")});
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.out, QByteArray("same 1\narguments 1\nkeys s,no-footprint,lang\nsilent 1\n"));
}

void tst_Runtime::crashDetection_data()
{
    // One process per run, each ending as given; `crashed` is what each run reports.
    QTest::addColumn<QStringList>("ends");
    QTest::addColumn<QString>("crashed");

    QTest::newRow("orderly exits") << QStringList{"exit", "exit"} << "00";
    QTest::newRow("killed once") << QStringList{"kill", "exit", "exit"} << "010";
    QTest::newRow("killed while reporting a crash") << QStringList{"kill", "kill", "exit", "exit"} << "0110";
    QTest::newRow("killed last") << QStringList{"exit", "kill"} << "00";
}

void tst_Runtime::crashDetection()
{
    QFETCH(QStringList, ends);
    QFETCH(QString, crashed);

    QTemporaryDir preferences;
    QVERIFY(preferences.isValid());
    const QString marker = preferences.path() + QStringLiteral("/.crash_handler_marker");
    for (int i = 0; i < ends.size(); ++i) {
        const bool killed = ends[i] == QLatin1String("kill");
        const HelperRun run = runHelper(QStringLiteral("crash"),
                                        {QStringLiteral("path=") + preferences.path(),
                                         QStringLiteral("setup"), ends[i]});
        QCOMPARE(run.exitStatus, killed ? QProcess::CrashExit : QProcess::NormalExit);
        QCOMPARE(run.out, QStringLiteral("setup 1 crashed %1\n").arg(crashed[i]).toUtf8());

        QStringList logs;
        if (crashed[i] == QLatin1Char('1'))
            logs << crashLog(QStringLiteral("tv_setup_crash_handler"), QStringLiteral("4"),
                             QStringLiteral("Previous execution crashed"));
        if (!killed)
            logs << cleanupLine;
        QCOMPARE(run.logs, logs);
        QCOMPARE(QFileInfo::exists(marker), killed);
    }
}

void tst_Runtime::crashHandler_data()
{
    // "@" stands for the test's directory, with A and B in it and no "missing".
    QTest::addColumn<QStringList>("leftOver");  // markers there before the run
    QTest::addColumn<QStringList>("steps");
    QTest::addColumn<QString>("output");
    QTest::addColumn<QStringList>("logs");
    QTest::addColumn<QStringList>("markersAfter");

    const QString notSet = crashLog(QStringLiteral("tv_setup_crash_handler"), QStringLiteral("4"),
                                    QStringLiteral("tv_setup_crash_handler() : call tv_set_user_preferences_path() first"));
    const QString failed = crashLog(QStringLiteral("tv_setup_crash_handler"), QStringLiteral("4"),
                                    QStringLiteral("tv_setup_crash_handler() : initialization failed"));
    const QString cleanupFailed = crashLog(QStringLiteral("tv_cleanup_crash_handler"), QStringLiteral("4"),
                                           QStringLiteral("tv_cleanup_crash_handler() : failed"));

    QTest::newRow("set up twice")
        << QStringList() << QStringList{"path=@A", "setup", "setup", "exit"}
        << "setup 1 crashed 0\nsetup 1 crashed 0\n" << QStringList{cleanupLine} << QStringList();
    QTest::newRow("path set late")
        << QStringList() << QStringList{"setup", "path=@A", "setup", "exit"}
        << "setup 0 crashed 0\nsetup 1 crashed 0\n" << QStringList{notSet, cleanupLine} << QStringList();
    QTest::newRow("path changed before exit")
        << QStringList{"@B"} << QStringList{"path=@A", "setup", "path=@B", "exit"}
        << "setup 1 crashed 0\n" << QStringList{cleanupLine} << QStringList{"@A"};
    QTest::newRow("path changed to one without marker")
        << QStringList() << QStringList{"path=@A", "setup", "path=@B", "exit"}
        << "setup 1 crashed 0\n" << QStringList{cleanupLine, cleanupFailed} << QStringList{"@A"};
    QTest::newRow("marker cannot be created")
        << QStringList() << QStringList{"path=@missing", "setup", "setup", "exit"}
        << "setup 0 crashed 0\nsetup 0 crashed 0\n" << QStringList{failed, failed} << QStringList();
}

void tst_Runtime::crashHandler()
{
    QFETCH(QStringList, leftOver);
    QFETCH(QStringList, steps);
    QFETCH(QString, output);
    QFETCH(QStringList, logs);
    QFETCH(QStringList, markersAfter);

    QTemporaryDir directory;
    QVERIFY(directory.isValid());
    const auto expandIn = [&directory](QString text) {
        return text.replace(QLatin1Char('@'), directory.path() + QLatin1Char('/'));
    };
    QVERIFY(QDir(directory.path()).mkpath(QStringLiteral("A")));
    QVERIFY(QDir(directory.path()).mkpath(QStringLiteral("B")));
    const auto markerIn = [&](const QString& dir) {
        return expandIn(dir) + QStringLiteral("/.crash_handler_marker");
    };
    for (const QString& dir : leftOver) {
        QFile marker(markerIn(dir));
        QVERIFY(marker.open(QIODevice::WriteOnly));
    }
    for (QString& step : steps)
        step = expandIn(step);

    const HelperRun run = runHelper(QStringLiteral("crash"), steps);
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(QString::fromUtf8(run.out), output);
    QCOMPARE(run.logs, logs);
    for (const QString& dir : {QStringLiteral("@A"), QStringLiteral("@B")})
        QCOMPARE(QFileInfo::exists(markerIn(dir)), markersAfter.contains(dir));
}

void tst_Runtime::restart_data()
{
    // `calls`: one tv_restart_updater() call a line, "<keep> <argument>...". In `expected`,
    // "@program" is the application path set by the test, "@self" the helper itself.
    QTest::addColumn<QStringList>("currentArguments");
    QTest::addColumn<QString>("calls");
    QTest::addColumn<bool>("applicationPathSet");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("restart switch first") << QStringList{"-a", "b"} << "0 --x" << true
                                          << QStringList{"@program", "--restart", "--x"};
    QTest::newRow("current arguments kept") << QStringList{"-a", "b"} << "1 --y z" << true
                                            << QStringList{"@program", "-a", "b", "--restart", "--y", "z"};
    QTest::newRow("no arguments") << QStringList() << "1" << true << QStringList{"@program", "--restart"};
    QTest::newRow("duplicates kept") << QStringList() << "0 --restart" << true
                                     << QStringList{"@program", "--restart", "--restart"};
    QTest::newRow("second call wins") << QStringList{"-a"} << "0 --first\n1 --second" << true
                                      << QStringList{"@program", "-a", "--restart", "--second"};
    QTest::newRow("running executable") << QStringList() << "0 --x" << false
                                        << QStringList{"@self", "--restart", "--x"};
}

void tst_Runtime::restart()
{
    QFETCH(QStringList, currentArguments);
    QFETCH(QString, calls);
    QFETCH(bool, applicationPathSet);
    QFETCH(QStringList, expected);

    QTemporaryDir directory;
    QVERIFY(directory.isValid());
    const QString program = directory.filePath(QStringLiteral("updater"));
    QVERIFY(QFile::link(QStringLiteral(RUNTIME_HELPER), program));
    const QString self = QFileInfo(QStringLiteral(RUNTIME_HELPER)).canonicalFilePath();
    expected.replaceInStrings(QStringLiteral("@program"), program);
    expected.replaceInStrings(QStringLiteral("@self"), self);

    const QString recordPath = directory.filePath(QStringLiteral("record"));
    QProcessEnvironment environment;
    environment.insert(QStringLiteral("RUNTIME_HELPER_RECORD"), recordPath);
    environment.insert(QStringLiteral("RUNTIME_HELPER_CALLS"), calls);
    environment.insert(QStringLiteral("RUNTIME_HELPER_APPLICATION_PATH"),
                       applicationPathSet ? program : QString());
    const HelperRun run = runHelper(QStringLiteral("restart"), currentArguments, environment);
    QCOMPARE(run.exitCode, 0);

    const auto records = [&recordPath] {
        QFile file(recordPath);
        if (!file.open(QIODevice::ReadOnly))
            return QList<QByteArray>();
        QList<QByteArray> lines = file.readAll().split('\n');
        lines.removeAll(QByteArray());
        return lines;
    };
    QTRY_VERIFY_WITH_TIMEOUT(!records().isEmpty(), 60'000);
    // A second launch would have been started before the first one; give it time to show.
    QTest::qWait(300);
    const QList<QByteArray> launched = records();
    QCOMPARE(launched.size(), 1);
    QCOMPARE(QJsonDocument::fromJson(launched.first()).toVariant().toStringList(), expected);

    // Each call logs its command and registers the launch again; only the first launch runs.
    const int callCount = int(calls.count(QLatin1Char('\n'))) + 1;
    const QString launchLine = QStringLiteral("1 libupdater/Updater do_restart_updater: do_restart_updater()");
    QStringList logs{QStringLiteral("3 libupdater/Updater tv_restart_updater: ") + expected.join(QStringLiteral("   ")),
                     launchLine,
                     QStringLiteral("1 libupdater/Updater do_restart_updater: ") + expected.join(QLatin1Char('|'))};
    for (int i = 1; i < callCount; ++i)
        logs << launchLine;
    QCOMPARE(run.logs.mid(callCount - 1), logs);
}

void tst_Runtime::criticalErrorConsole_data()
{
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("details");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("plain") << "Plugins" << "x failed" << QString() << QByteArray("FATAL: [Plugins] x failed\n");
    QTest::newRow("details not printed") << "Plugins" << "x failed" << "trace" << QByteArray("FATAL: [Plugins] x failed\n");
    QTest::newRow("placeholder in title") << "50%2" << "done" << QString() << QByteArray("FATAL: [50%2] done\n");
    QTest::newRow("markup and UTF-8") << QStringLiteral("Ärger") << "<b>1%</b>" << QString()
                                      << QByteArray("FATAL: [\xc3\x84rger] <b>1%</b>\n");
}

void tst_Runtime::criticalErrorConsole()
{
    QFETCH(QString, title);
    QFETCH(QString, text);
    QFETCH(QString, details);
    QFETCH(QByteArray, expected);

    const HelperRun run = runHelper(QStringLiteral("critical"), {title, text, details});
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.out, expected);
}

void tst_Runtime::criticalErrorMessageBox_data()
{
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("details");

    QTest::newRow("with details") << "Plugins" << "x failed" << "libx.so: cannot open";
    QTest::newRow("without details") << "Plugins" << "x failed" << QString();
    QTest::newRow("markup shown as it is") << "Error" << "<b>x</b> failed" << QString();
}

void tst_Runtime::criticalErrorMessageBox()
{
    QFETCH(QString, title);
    QFETCH(QString, text);
    QFETCH(QString, details);

    struct Seen
    {
        QString title, text, informativeText, buttonText;
        QMessageBox::Icon icon = QMessageBox::NoIcon;
        Qt::TextFormat format = Qt::AutoText;
        qsizetype buttonCount = 0;
        QMessageBox::ButtonRole role = QMessageBox::InvalidRole;
        bool modal = false;
    };
    std::optional<Seen> seen;
    QPointer<QMessageBox> shown;

    QTimer poll;
    poll.setInterval(10);
    connect(&poll, &QTimer::timeout, this, [&] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!box || !box->isVisible())
            return;
        poll.stop();
        shown = box;
        const QList<QAbstractButton*> buttons = box->buttons();
        seen = Seen{box->windowTitle(), box->text(), box->informativeText(),
                    buttons.value(0) ? buttons.value(0)->text() : QString(), box->icon(),
                    box->textFormat(), buttons.size(),
                    buttons.value(0) ? box->buttonRole(buttons.value(0)) : QMessageBox::InvalidRole,
                    box->isModal()};
        if (buttons.size() == 1)
            buttons.first()->click();
        else
            box->reject();
    });
    poll.start();
    tv_display_critical_error(title, text, details);
    poll.stop();

    QVERIFY(seen.has_value());
    QVERIFY2(shown.isNull(), "the message box outlives its closing");
    QCOMPARE(seen->title, title);
    QCOMPARE(seen->text, text);
    QCOMPARE(seen->format, Qt::PlainText);
    QCOMPARE(seen->icon, QMessageBox::Critical);
    QCOMPARE(seen->informativeText, details);
    QCOMPARE(seen->buttonCount, 1);
    QCOMPARE(seen->buttonText, QStringLiteral("Quit"));
    QCOMPARE(seen->role, QMessageBox::RejectRole);
    QVERIFY(seen->modal);
}

QTEST_MAIN(tst_Runtime)
#include "tst_runtime.moc"
