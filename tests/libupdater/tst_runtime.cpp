#include <libupdater/Updater.h>

#include <LogCapture.h>
#include <TestSupport.h>

#include <QtTest/QtTest>
#include <QtWidgets/QApplication>
#include <QtWidgets/QAbstractButton>
#include <QtWidgets/QMessageBox>

#include <csignal>
#include <cstdio>
#include <memory>

using namespace tvl::updater;
using namespace testsupport;

namespace {

// The child process. Started by tv_restart_updater() ("--restart" among its arguments), it
// appends its command line to $RESTART_RECORD. Otherwise it runs its arguments as steps and
// prints what happens, each step followed by this library's log records as "<level> <message>":
// "p=<dir>" sets the preferences path, "setup" lays the crash marker, "r=<keep>|<argument>..."
// asks for a restart (application path: $RESTART_PROGRAM), "fatal=<title>|<text>|<details>"
// reports a critical error, "kill" sends SIGKILL to itself, "note=<plugin>" notes a starting plugin in the
// crash marker, "hold" waits until its standard input ends (a launcher that keeps running). After "setup" it
// prints the plugin noted by the run that died, if any. Then it exits in order.
int playScenario(const QByteArray&, int argc, char** argv)
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    if (arguments.contains(QLatin1String("--restart"))) {
        QFile record(qEnvironmentVariable("RESTART_RECORD"));
        const QByteArray line = QJsonDocument(QJsonArray::fromStringList(arguments)).toJson(QJsonDocument::Compact);
        return record.open(QIODevice::Append) && record.write(line + '\n') > 0 ? 0 : 3;
    }
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    LogCapture capture;
    const auto printLogs = [&capture] {
        for (const QString& line : capture.lines(QStringLiteral("libupdater/Updater")))
            std::puts(qPrintable(line));
    };
    auto app = std::make_unique<QCoreApplication>(argc, argv);
    tv_set_application_path(qEnvironmentVariable("RESTART_PROGRAM"));
    for (const QString& step : arguments.mid(1)) {
        const QStringList values = step.section(QLatin1Char('='), 1).split(QLatin1Char('|'));
        if (step.startsWith(QLatin1String("p=")))
            tv_set_user_preferences_path(values.first());
        else if (step == QLatin1String("setup") && tv_setup_crash_handler()) {
            std::printf("setup ok, crashed %d\n", int(tv_previous_run_crashed()));
            if (!tv_previous_run_crashed_plugin().isEmpty())
                std::printf("died starting %s, %d in a row\n", qPrintable(tv_previous_run_crashed_plugin()), tv_previous_run_crash_count());
        }
        else if (step == QLatin1String("setup"))
            std::puts("setup failed");
        else if (step.startsWith(QLatin1String("r=")))
            tv_restart_updater(values.mid(1), values.first() == QLatin1String("1"));
        else if (step.startsWith(QLatin1String("fatal=")))
            tv_display_critical_error(values.value(0), values.value(1), values.value(2));
        else if (step == QLatin1String("kill"))
            std::raise(SIGKILL);
        else if (step.startsWith(QLatin1String("note=")))
            tv_note_starting_plugin(values.first(), QStringLiteral("/plugins/lib%1.so").arg(values.first()));
        else if (step == QLatin1String("hold")) {
            std::puts("holding");
            char buffer[64];
            while (std::fread(buffer, 1, sizeof buffer, stdin) > 0) {
            }
        }
        printLogs();
    }
    app.reset();
    printLogs();
    return 0;
}

} // namespace

class tst_Runtime : public QObject
{
    Q_OBJECT

    QTemporaryDir m_root;
    // HOME and the XDG base directories lie in the test's directory.
    void setEnvironment()
    {
        for (const char* name : {"HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME", "XDG_CONFIG_HOME"})
            qputenv(name, QFile::encodeName(m_root.filePath(QString::fromLatin1(name).toLower())));
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_root.isValid());
        setEnvironment();
        QVERIFY(QFile::link(QCoreApplication::applicationFilePath(), m_root.filePath(QStringLiteral("updater"))));
    }

    void defaultPath_data()
    {
        QTest::addColumn<int>("location");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<QByteArray>("variable"); // "NAME=value" set for the row
        const QString root = m_root.path() + QLatin1Char('/');
        QTest::newRow("fonts") << int(DesktopServices::FontsLocation) << root + "xdg_data_home/fonts" << QByteArray();
        QTest::newRow("movies") << int(DesktopServices::MoviesLocation) << root + "home/Videos" << QByteArray();
        QTest::newRow("data: shared") << int(DesktopServices::DataLocation) << root + "xdg_data_home" << QByteArray();
        QTest::newRow("cache: shared") << int(DesktopServices::CacheLocation) << root + "xdg_cache_home" << QByteArray();
        QTest::newRow("trailing slashes") << int(DesktopServices::CacheLocation) << "/var/c" << QByteArray("XDG_CACHE_HOME=/var/c///");
        QTest::newRow("root") << int(DesktopServices::HomeLocation) << "" << QByteArray("HOME=/");
        QTest::newRow("unknown") << 11 << "" << QByteArray();
    }

    void defaultPath()
    {
        QFETCH(int, location);
        QFETCH(QByteArray, variable);
        if (!variable.isEmpty())
            qputenv(variable.left(variable.indexOf('=')).constData(), variable.mid(variable.indexOf('=') + 1));
        const auto restore = qScopeGuard([this] { setEnvironment(); });
        QCoreApplication::setOrganizationName(QStringLiteral("Org"));
        QCoreApplication::setApplicationName(QStringLiteral("App"));
        QTEST(tv_default_path(location), "expected");
        QCOMPARE(QCoreApplication::organizationName() + QCoreApplication::applicationName(), QStringLiteral("OrgApp"));
    }

    void applicationName_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("spaces go before the 15-byte cut") << " a b c d e f g h i j k l m n o p " << QByteArray("abcdefghijklmno");
        QTest::newRow("only spaces go") << "a\tb c" << QByteArray("a\tbc");
        QTest::newRow("non-ASCII") << QStringLiteral("Grüße Welt") << QByteArray("Gr\xc3\xbc\xc3\x9f" "eWelt");
    }

    void applicationName()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, expected);
        const auto comm = [] { return readFile(QStringLiteral("/proc/self/comm")).chopped(1); };
        const QByteArray original = comm();
        const QString qtName = QCoreApplication::applicationName();
        tv_set_application_name(name);
        const QByteArray result = comm();
        tv_set_application_name(QString::fromLocal8Bit(original));
        QCOMPARE(result, expected);
        QCOMPARE(QCoreApplication::applicationName(), qtName);
    }

    void crashMarker_data()
    {
        // One process per run; "@" stands for a fresh directory holding A and B but no "missing".
        QTest::addColumn<QStringList>("runs");
        QTest::addColumn<QStringList>("outputs");
        QTest::addColumn<QString>("markersLeft"); // of A and B, after the last run

        const QString ok = "setup ok, crashed 0\n", reported = "setup ok, crashed 1\n4 Previous execution crashed\n",
                      cleanup = "1 tv_cleanup_crash_handler()\n", exit = "p=@A setup", kill = "p=@A setup kill",
                      failed = "setup failed\n4 tv_setup_crash_handler() : initialization failed\n";
        QTest::newRow("a killed run is reported by the next")
            << QStringList{exit, kill, kill, exit, exit}
            << QStringList{ok + cleanup, ok, reported, reported + cleanup, ok + cleanup} << "";
        QTest::newRow("path set late, set up twice") << QStringList{"setup p=@A setup setup"}
            << QStringList{"setup failed\n4 tv_setup_crash_handler() : call tv_set_user_preferences_path() first\n"
                           + ok + ok + cleanup} << "";
        QTest::newRow("path changed before exit") << QStringList{"p=@A setup p=@B"}
            << QStringList{ok + cleanup + "4 tv_cleanup_crash_handler() : failed\n"} << "A";
        QTest::newRow("marker cannot be created") << QStringList{"p=@missing setup setup"} << QStringList{failed + failed} << "";
        // The plugin starting when a run died is named at the next start, with the runs in a row that died in
        // it; a run that gets past it starts the count anew.
        const QString died = "4 Previous execution crashed\n4 The previous run ended while plugin 'x' was starting (%1 run(s) in a row)\n";
        QTest::newRow("died while a plugin started")
            << QStringList{"p=@A setup note=x kill", "p=@A setup note=x kill", "p=@A setup note=x note= kill", "p=@A setup"}
            << QStringList{ok, "setup ok, crashed 1\ndied starting x, 1 in a row\n" + died.arg(1),
                           "setup ok, crashed 1\ndied starting x, 2 in a row\n" + died.arg(2), reported + cleanup}
            << "";
    }

    void crashMarkerOfARunningLauncher_data()
    {
        // A second process of the same user beside a launcher that holds the marker: the marker is no crash,
        // and it stays the running launcher's whatever the second one does.
        QTest::addColumn<QString>("second");
        QTest::addColumn<QString>("output");
        const QString notCrashed = "setup ok, crashed 0\n3 Another running launcher holds the crash marker %1\n";
        QTest::newRow("orderly exit") << "p=@A setup" << notCrashed;
        QTest::newRow("killed") << "p=@A setup kill" << notCrashed;
        QTest::newRow("notes a plugin") << "p=@A setup note=x" << notCrashed;
    }

    void crashMarkerOfARunningLauncher()
    {
        QFETCH(QString, second);
        QFETCH(QString, output);
        QTemporaryDir dir;
        QVERIFY(QDir(dir.path()).mkpath(QStringLiteral("A")));
        const QString marker = dir.filePath(QStringLiteral("A/.crash_handler_marker"));
        QProcess holder;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QString::fromLatin1(ScenarioVariable), QStringLiteral("steps"));
        holder.setProcessEnvironment(environment);
        holder.start(QCoreApplication::applicationFilePath(), {"p=" + dir.filePath("A"), "setup", "hold"});
        QByteArray held;
        while (!held.contains("holding") && holder.waitForReadyRead(30000))
            held += holder.readAll();
        QVERIFY2(held.startsWith("setup ok, crashed 0\n"), held.constData());

        const QByteArray markerBefore = readFile(marker);
        const auto run = runScenario("steps", second.replace(QLatin1Char('@'), dir.path() + QLatin1Char('/')).split(QLatin1Char(' ')));
        QVERIFY(run.finished);
        QCOMPARE(QString::fromUtf8(run.out), output.arg(marker));
        QVERIFY(QFile::exists(marker));
        QCOMPARE(readFile(marker), markerBefore);

        holder.closeWriteChannel();
        QVERIFY(holder.waitForFinished(30000) && holder.exitCode() == 0);
        QVERIFY(!QFile::exists(marker));
    }

    void crashMarker()
    {
        QFETCH(QStringList, runs);
        QFETCH(QStringList, outputs);
        QFETCH(QString, markersLeft);
        QTemporaryDir dir;
        QVERIFY(QDir(dir.path()).mkpath(QStringLiteral("A")) && QDir(dir.path()).mkpath(QStringLiteral("B")));
        for (int i = 0; i < runs.size(); ++i) {
            const bool killed = runs[i].endsWith(QLatin1String("kill"));
            const auto run = runScenario("steps", runs[i].replace(QLatin1Char('@'), dir.path() + QLatin1Char('/')).split(QLatin1Char(' ')));
            QVERIFY(killed ? run.finished && run.status == QProcess::CrashExit : run.exitedWith(0));
            QCOMPARE(QString::fromUtf8(run.out), outputs[i]);
        }
        for (const QString name : {"A", "B"})
            QCOMPARE(QFile::exists(dir.filePath(name + "/.crash_handler_marker")), markersLeft.contains(name));
    }

    void restart_data()
    {
        // The child's arguments ("r=..." call tv_restart_updater()), whether the application
        // path is set, and the command started: from the application path, else this executable.
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<bool>("pathSet");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("the second call replaces the first") << QStringList{"-a", "r=1|--first", "r=0|--second"} << true
            << QStringList{m_root.filePath(QStringLiteral("updater")), "--restart", "--second"};
        QTest::newRow("arguments kept, no application path") << QStringList{"-a", "r=1|--y|z"} << false
            << QStringList{QCoreApplication::applicationFilePath(), "-a", "r=1|--y|z", "--restart", "--y", "z"};
    }

    void restart()
    {
        QFETCH(QStringList, arguments);
        QFETCH(bool, pathSet);
        QFETCH(QStringList, expected);
        const QString record = m_root.filePath(QString::fromLatin1(QTest::currentDataTag()));
        const auto run = runScenario("steps", arguments, {"RESTART_RECORD=" + record,
                                     "RESTART_PROGRAM=" + (pathSet ? m_root.filePath(QStringLiteral("updater")) : QString())});
        QVERIFY(run.exitedWith(0));
        QTRY_VERIFY_WITH_TIMEOUT(!readFile(record).isEmpty(), 20000);
        QTest::qWait(300); // a second launch would show by now
        QCOMPARE(QJsonDocument::fromJson(readFile(record)).toVariant().toStringList(), expected);
        // Each call logs its command and registers the launch again; only the first launch runs.
        const QString tail = "3 " + expected.join(QStringLiteral("   ")) + "\n1 do_restart_updater()\n1 "
                             + expected.join(QLatin1Char('|')) + '\n'
                             + QStringLiteral("1 do_restart_updater()\n").repeated(arguments.filter(QStringLiteral("r=")).size() - 1);
        QVERIFY2(QString::fromUtf8(run.out).endsWith(tail), run.out.constData());
    }

    void criticalErrorConsole()
    {
        // One line on standard output, without the details; "%2" in the title stays as it is.
        const auto run = runScenario("steps", {QStringLiteral("fatal=Ärger 50%2|<b>1%</b> failed|the details")});
        QVERIFY(run.exitedWith(0));
        QCOMPARE(run.out, QByteArray("FATAL: [\xc3\x84rger 50%2] <b>1%</b> failed\n"));
    }

    void criticalErrorMessageBox()
    {
        QStringList seen;
        QPointer<QMessageBox> shown;
        QTimer timer; // fires in the box's own event loop
        timer.setSingleShot(true);
        connect(&timer, &QTimer::timeout, this, [&] {
            shown = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            if (!shown || !shown->isVisible())
                return;
            seen << shown->windowTitle() << shown->text() << shown->informativeText() << QString::number(shown->icon())
                 << QString::number(shown->textFormat()) << QString::number(shown->isModal());
            for (QAbstractButton* button : shown->buttons())
                seen << button->text() + ':' + QString::number(shown->buttonRole(button));
            shown->buttons().isEmpty() ? shown->reject() : shown->buttons().first()->click();
        });
        timer.start(0);
        tv_display_critical_error(QStringLiteral("Plugins"), QStringLiteral("<b>x</b> failed"), QStringLiteral("libx.so: gone"));
        QVERIFY2(shown.isNull(), "the message box outlives its closing");
        QCOMPARE(seen, (QStringList{"Plugins", "<b>x</b> failed", "libx.so: gone", QString::number(QMessageBox::Critical),
                                    QString::number(Qt::PlainText), "1", "Quit:" + QString::number(QMessageBox::RejectRole)}));
    }
};

TEST_MAIN_WITH_SCENARIOS(tst_Runtime, QApplication, playScenario)
#include "tst_runtime.moc"
