#include <libupdater/QtSingleApplication.h>
#include <libupdater/QtSingleCoreApplication.h>

#include <TestSupport.h>

#include <QtTest/QtTest>
#include <QtWidgets/QWidget>

#include <cstdio>

namespace {

constexpr int Sent = 10, NotSent = 11, WaitMs = 20000;

const QString LongMessage = QStringLiteral("aé€🎮").repeated(1024 * 1024 / 10); // too long for an argument

// Another instance, of id argv[1]: prints its role. A primary prints each message and quits on
// "quit"; a secondary sends the other arguments ("@long": LongMessage; "@wait": read a line
// first, then allow 60 s) and exits with Sent or NotSent. A secondary given "@takeover=<ms>" waits
// that long for the primary to go, prints "took over" or "forced", and serves as the primary.
int playInstance(const QByteArray&, int argc, char** argv)
{
    QtSingleCoreApplication app(QString::fromLocal8Bit(argv[1]), argc, argv);
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    std::puts(app.isRunning() ? "secondary" : "primary");
    QObject::connect(&app, &QtSingleCoreApplication::messageReceived, &app, [&app](const QString& message) {
        std::puts(qPrintable(message));
        if (message == QLatin1String("quit"))
            app.quit();
    });
    if (!app.isRunning())
        return app.exec();
    const QString takeOver = app.arguments().value(2);
    if (takeOver.startsWith(QLatin1String("@takeover="))) {
        std::puts(app.takeOver(takeOver.section(QLatin1Char('='), 1).toInt()) ? "took over" : "forced");
        return app.exec();
    }
    int timeout = 5000;
    for (const QString& argument : app.arguments().mid(2)) {
        if (argument == QLatin1String("@wait"))
            timeout = std::getchar() == EOF ? 0 : 60000;
        else if (!app.sendMessage(argument == QLatin1String("@long") ? LongMessage : argument, timeout))
            return NotSent;
    }
    return Sent;
}

} // namespace

// This process is a primary itself; its children use a runtime directory of their own unless `shared`.
class tst_SingleApplication : public QObject
{
    Q_OBJECT

    QScopedPointer<QTemporaryDir> m_runtime;

    QProcess* start(const QString& id, const QStringList& messages = {}, bool shared = false)
    {
        auto* process = new QProcess(this); // killed at the latest when the test ends
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QString::fromLatin1(testsupport::ScenarioVariable), QStringLiteral("instance"));
        environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), shared ? qEnvironmentVariable("XDG_RUNTIME_DIR") : m_runtime->path());
        process->setProcessEnvironment(environment);
        process->start(QCoreApplication::applicationFilePath(), QStringList{id} + messages);
        return process;
    }
    // These run the event loop while they wait, reading every child's output.
    static QString line(QProcess* process)
    {
        return QTest::qWaitFor([=] { return process->canReadLine(); }, WaitMs) ? QString::fromUtf8(process->readLine().trimmed()) : "";
    }
    static int finish(QProcess* process) // -2: killed, -1: still running
    {
        const bool ended = QTest::qWaitFor([process] { return process->state() == QProcess::NotRunning; }, WaitMs);
        return !ended ? -1 : process->exitStatus() == QProcess::NormalExit ? process->exitCode() : -2;
    }
    static QStringList received(QProcess* primary) // what is left after its role
    {
        return QString::fromUtf8(primary->readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }

private slots:
    void init() { m_runtime.reset(new QTemporaryDir); }

    void handOver_data()
    {
        // The first primary quits, is killed, or is killed and its lock file emptied ("unwritten").
        QTest::addColumn<QString>("id"); // also the message sent, LongMessage for the default id
        QTest::addColumn<QString>("end");
        QTest::newRow("default id, 1 MiB, quits") << QString() << "quit";
        QTest::newRow("non-ASCII, killed") << QStringLiteral("Grüße, 世界 🎮") << "kill";
        QTest::newRow("lock unwritten") << "x" << "unwritten";
    }

    void handOver()
    {
        QFETCH(QString, id);
        QFETCH(QString, end);
        QProcess* first = start(id);
        QCOMPARE(line(first), QStringLiteral("primary"));
        QProcess* late = start(id, {"@wait", "too late"});
        QCOMPARE(line(late), QStringLiteral("secondary"));
        QCOMPARE(finish(start(id, {id.isEmpty() ? QStringLiteral("@long") : id, end})), Sent);
        if (end != "quit")
            first->kill(); // neither lock nor socket is removed
        QCOMPARE(finish(first), end == "quit" ? 0 : -2);
        QCOMPARE(received(first).value(0), id.isEmpty() ? LongMessage : id);
        if (end == "unwritten") {
            QFile lock(QDir(m_runtime->path()).entryInfoList({"*-lockfile"}, QDir::Files).value(0).filePath());
            QVERIFY(lock.open(QIODevice::WriteOnly | QIODevice::Truncate)
                    && lock.setFileTime(QDateTime::currentDateTime().addSecs(-60), QFileDevice::FileModificationTime));
        }
        late->write("\n");
        QCOMPARE(finish(late), NotSent); // at once, not after its time-out
        QProcess* successor = start(id);
        QCOMPARE(line(successor), QStringLiteral("primary"));
        QCOMPARE(finish(start(id, {"after", "quit"})), Sent);
        QCOMPARE(finish(successor), 0);
        QCOMPARE(received(successor), (QStringList{"after", "quit"}));
    }

    void takeOver_data()
    {
        // A restarted instance takes the place of the one that restarted it: it waits for it to go, or at last
        // takes its place while it hangs on; either way, messages reach the new one, also after the old one ends.
        QTest::addColumn<int>("oldQuitsAfterMs"); // -1: only after the wait
        QTest::addColumn<QString>("outcome");
        QTest::newRow("the old one goes in time") << 200 << "took over";
        QTest::newRow("the old one hangs on") << -1 << "forced";
    }

    void takeOver()
    {
        QFETCH(int, oldQuitsAfterMs);
        QProcess* old = start("restart");
        QCOMPARE(line(old), QStringLiteral("primary"));
        QProcess* restarted = start("restart", {oldQuitsAfterMs < 0 ? "@takeover=300" : "@takeover=20000"});
        QCOMPARE(line(restarted), QStringLiteral("secondary"));
        if (oldQuitsAfterMs >= 0) {
            QTest::qWait(oldQuitsAfterMs);
            old->kill();
        }
        QTEST(line(restarted), "outcome");
        QCOMPARE(finish(start("restart", {"first"})), Sent);
        if (oldQuitsAfterMs < 0) {
            old->kill();
            QCOMPARE(finish(old), -2);
            QTest::qWait(600); // the successor takes the lock and serves its socket anew
        }
        QCOMPARE(finish(start("restart", {"second", "quit"})), Sent);
        QCOMPARE(finish(restarted), 0);
        QCOMPARE(received(restarted), (QStringList{"first", "second", "quit"}));
        QVERIFY(received(old).isEmpty());
    }

    void simultaneousStartsElectOnePrimary()
    {
        for (const QString id : {"one", "two", "three"}) {
            const QList<QProcess*> processes{start(id, {"hi"}), start(id, {"hi"}), start(id, {"hi"}), start(id, {"hi"})};
            QList<QProcess*> primaries;
            for (QProcess* process : processes)
                if (line(process) == "primary")
                    primaries << process;
            QCOMPARE(primaries.size(), 1);
            // Secondaries may have sent before the primary listened: nothing may be lost.
            for (QProcess* process : processes)
                QVERIFY(process == primaries.first() || finish(process) == Sent);
            QCOMPARE(finish(start(id, {"quit"})), Sent);
            QCOMPARE(finish(primaries.first()), 0);
            QCOMPARE(received(primaries.first()), (QStringList{"hi", "hi", "hi", "quit"}));
        }
    }

    void activationWindow()
    {
        auto* app = qobject_cast<QtSingleApplication*>(QCoreApplication::instance());
        QCOMPARE(app->id(), QCoreApplication::applicationFilePath());
        QVERIFY(!app->isRunning() && !app->sendMessage(QStringLiteral("to myself"), 1000)); // nobody to send to
        QSignalSpy spy(app, &QtSingleApplication::messageReceived);
        QScopedPointer<QWidget> window(new QWidget);
        window->showMinimized();
        app->setActivationWindow(window.data(), true);
        app->setActivationWindow(window.data(), false); // replaces the first connection
        QCOMPARE(finish(start(app->id(), {QStringLiteral("one")}, true)), Sent);
        QVERIFY(window->windowState() & Qt::WindowMinimized);
        app->setActivationWindow(window.data());
        QCOMPARE(finish(start(app->id(), {QStringLiteral("two")}, true)), Sent);
        QVERIFY(window->isVisible() && !(window->windowState() & Qt::WindowMinimized));
        QCOMPARE(spy.size(), 2);
        window.reset(); // not owned: activation does nothing once it is gone
        QCOMPARE(app->activationWindow(), nullptr);
        app->activateWindow();
    }
};

TEST_MAIN_WITH_SCENARIOS(tst_SingleApplication, QtSingleApplication, playInstance)
#include "tst_singleapplication.moc"
