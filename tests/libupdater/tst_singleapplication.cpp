#include <libupdater/QtSingleApplication.h>

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QProcess>
#include <QtCore/QStandardPaths>
#include <QtCore/QTemporaryDir>
#include <QtCore/QUuid>
#include <QtTest/QSignalSpy>
#include <QtTest/QTest>
#include <QtWidgets/QWidget>

#include <memory>
#include <vector>

namespace {

constexpr int ExitSent = 10;
constexpr int ExitNotSent = 11;
constexpr int WaitMs = 20000;

QString freshId()
{
    return QStringLiteral("tst-") + QUuid::createUuid().toString(QUuid::WithoutBraces);
}

} // namespace

// The test application itself is a primary QtSingleApplication (see main()); helper processes
// act as further instances, in the same runtime directory or in one of their own.
class TestSingleApplication : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void primaryInProcess();
    void messageReachesPrimary_data();
    void messageReachesPrimary();
    void differentIdsAreIndependent();
    void killedPrimaryIsReplaced_data();
    void killedPrimaryIsReplaced();
    void simultaneousStartsElectOnePrimary();
    void sendFailsAtOnceWhenPrimaryIsGone_data();
    void sendFailsAtOnceWhenPrimaryIsGone();
    void messagesArriveInOrderPerSender();
    void activationWindow_data();
    void activationWindow();

private:
    QProcess* start(const QString& kind, const QString& id, const QStringList& messages = {},
                    bool ownRuntime = true);
    static QString readLine(QProcess* process);
    static int finish(QProcess* process);
    QStringList received() const;

    std::unique_ptr<QTemporaryDir> m_dir;
    std::vector<std::unique_ptr<QProcess>> m_processes;
};

static QtSingleApplication* application()
{
    return static_cast<QtSingleApplication*>(QCoreApplication::instance());
}

void TestSingleApplication::init()
{
    m_dir = std::make_unique<QTemporaryDir>(QDir::tempPath() + QStringLiteral("/singleapp-XXXXXX"));
    QVERIFY(m_dir->isValid());
    QVERIFY(QDir(m_dir->path()).mkdir(QStringLiteral("runtime")));
    QVERIFY(QFile::setPermissions(m_dir->filePath(QStringLiteral("runtime")),
                                  QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
}

void TestSingleApplication::cleanup()
{
    for (auto& process : m_processes) {
        if (process->state() != QProcess::NotRunning) {
            process->kill();
            process->waitForFinished(WaitMs);
        }
    }
    m_processes.clear();
    m_dir.reset();
}

// With ownRuntime the helper keeps its lock and socket in this test's own runtime directory;
// otherwise it shares the test application's, so that it can talk to it.
QProcess* TestSingleApplication::start(const QString& kind, const QString& id,
                                       const QStringList& messages, bool ownRuntime)
{
    auto process = std::make_unique<QProcess>();
    if (ownRuntime) {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("XDG_RUNTIME_DIR"),
                           m_dir->filePath(QStringLiteral("runtime")));
        process->setProcessEnvironment(environment);
    }
    process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process->start(QStringLiteral(SINGLEAPP_HELPER),
                   QStringList{kind, id, m_dir->filePath(QStringLiteral("received"))} + messages);
    m_processes.push_back(std::move(process));
    return m_processes.back().get();
}

// The helper prints its role, then its id.
QString TestSingleApplication::readLine(QProcess* process)
{
    QDeadlineTimer deadline(WaitMs);
    while (!process->canReadLine() && !deadline.hasExpired())
        process->waitForReadyRead(50);
    return QString::fromUtf8(process->readLine()).trimmed();
}

int TestSingleApplication::finish(QProcess* process)
{
    if (!process->waitForFinished(WaitMs))
        return -1;
    return process->exitStatus() == QProcess::NormalExit ? process->exitCode() : -2;
}

QStringList TestSingleApplication::received() const
{
    QFile file(m_dir->filePath(QStringLiteral("received")));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QStringList messages;
    for (const QByteArray& line : file.readAll().split('\n')) {
        if (line.startsWith('>'))
            messages << QString::fromUtf8(line.mid(1));
    }
    return messages;
}

void TestSingleApplication::primaryInProcess()
{
    QtSingleApplication* app = application();
    QVERIFY(!app->isRunning());
    QVERIFY(app->id().startsWith(QLatin1String("tst_singleapplication-")));
    // The primary has nobody to send to.
    QVERIFY(!app->sendMessage(QStringLiteral("to myself"), 1000));
}

void TestSingleApplication::messageReachesPrimary_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("id"); // empty: the constructor without id
    QTest::addColumn<QString>("message");

    // 1 MiB of UTF-8 with characters of one to four bytes, no line breaks.
    const QString unit = QStringLiteral("aé€🎮");
    const qsizetype unitBytes = unit.toUtf8().size();
    QString longMessage = unit.repeated(1024 * 1024 / unitBytes);
    longMessage += QString(1024 * 1024 % unitBytes, QLatin1Char('x'));

    for (const char* kind : {"core", "gui"}) {
        const QString k = QString::fromLatin1(kind);
        QTest::addRow("%s-plain", kind) << k << freshId() << QStringLiteral("--open game://42");
        QTest::addRow("%s-default-id", kind) << k << QString() << QStringLiteral("default");
        QTest::addRow("%s-non-ascii", kind) << k << QStringLiteral("Spiel: Grüße 🎮")
                                            << QStringLiteral("Grüße, 世界 🎮");
        QTest::addRow("%s-empty", kind) << k << freshId() << QString();
        QTest::addRow("%s-1MiB", kind) << k << freshId() << longMessage;
    }
}

void TestSingleApplication::messageReachesPrimary()
{
    QFETCH(QString, kind);
    QFETCH(QString, id);
    QFETCH(QString, message);

    QString argument = message;
    if (message.size() > 1000) {
        // Far beyond what one command-line argument may hold.
        QFile file(m_dir->filePath(QStringLiteral("message")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(message.toUtf8());
        argument = QLatin1Char('@') + file.fileName();
    }

    QProcess* primary = start(kind, id);
    QCOMPARE(readLine(primary), QStringLiteral("primary"));
    QCOMPARE(readLine(primary),
             id.isEmpty() ? QFileInfo(QStringLiteral(SINGLEAPP_HELPER)).canonicalFilePath() : id);
    QProcess* secondary = start(kind, id, {argument});
    QCOMPARE(readLine(secondary), QStringLiteral("secondary"));
    QCOMPARE(finish(secondary), ExitSent);
    // The primary acknowledges before it hands the message on, so its note may lag a little.
    QTRY_COMPARE_WITH_TIMEOUT(received(), QStringList{message}, WaitMs);

    QCOMPARE(finish(start(kind, id, {QStringLiteral("quit")})), ExitSent);
    QCOMPARE(finish(primary), 0);
}

void TestSingleApplication::differentIdsAreIndependent()
{
    const QString idA = freshId();
    const QString idB = freshId();
    QProcess* primaryA = start(QStringLiteral("core"), idA);
    QProcess* primaryB = start(QStringLiteral("core"), idB);
    QCOMPARE(readLine(primaryA), QStringLiteral("primary"));
    QCOMPARE(readLine(primaryB), QStringLiteral("primary"));

    QCOMPARE(finish(start(QStringLiteral("core"), idB, {QStringLiteral("quit")})), ExitSent);
    QCOMPARE(finish(primaryB), 0);
    QVERIFY(primaryA->state() != QProcess::NotRunning);
    QCOMPARE(finish(start(QStringLiteral("core"), idA, {QStringLiteral("quit")})), ExitSent);
    QCOMPARE(finish(primaryA), 0);
    QCOMPARE(received(), (QStringList{QStringLiteral("quit"), QStringLiteral("quit")}));
}

void TestSingleApplication::killedPrimaryIsReplaced_data()
{
    QTest::addColumn<bool>("lockUnwritten");
    QTest::newRow("lock written") << false;
    // Killed between creating its lock file and writing its process id into it.
    QTest::newRow("lock unwritten") << true;
}

void TestSingleApplication::killedPrimaryIsReplaced()
{
    QFETCH(bool, lockUnwritten);
    const QString id = freshId();
    QProcess* dead = start(QStringLiteral("core"), id);
    QCOMPARE(readLine(dead), QStringLiteral("primary"));
    dead->kill(); // SIGKILL: neither the lock nor the socket is removed
    QVERIFY(dead->waitForFinished(WaitMs));
    const QDir runtime(m_dir->filePath(QStringLiteral("runtime")));
    QCOMPARE(runtime.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size(), 2);
    if (lockUnwritten) {
        const QStringList locks = runtime.entryList({QStringLiteral("*-lockfile")}, QDir::Files);
        QCOMPARE(locks.size(), 1);
        QFile lock(runtime.filePath(locks.first()));
        QVERIFY(lock.open(QIODevice::WriteOnly | QIODevice::Truncate));
        QVERIFY(lock.setFileTime(QDateTime::currentDateTime().addSecs(-60),
                                 QFileDevice::FileModificationTime));
    }

    QProcess* successor = start(QStringLiteral("core"), id);
    QCOMPARE(readLine(successor), QStringLiteral("primary"));
    QCOMPARE(finish(start(QStringLiteral("core"), id, {QStringLiteral("after")})), ExitSent);
    QCOMPARE(finish(start(QStringLiteral("core"), id, {QStringLiteral("quit")})), ExitSent);
    QCOMPARE(finish(successor), 0);
    QCOMPARE(received(), (QStringList{QStringLiteral("after"), QStringLiteral("quit")}));
}

void TestSingleApplication::simultaneousStartsElectOnePrimary()
{
    constexpr int Rounds = 3;
    constexpr int Instances = 4;
    for (int round = 0; round < Rounds; ++round) {
        QFile::remove(m_dir->filePath(QStringLiteral("received")));
        const QString id = freshId();
        QList<QProcess*> processes;
        for (int i = 0; i < Instances; ++i)
            processes << start(QStringLiteral("core"), id, {QStringLiteral("from-%1").arg(i)});

        int primaryIndex = -1;
        for (int i = 0; i < Instances; ++i) {
            const QString role = readLine(processes[i]);
            if (role == QLatin1String("primary")) {
                QCOMPARE(primaryIndex, -1);
                primaryIndex = i;
            } else {
                QCOMPARE(role, QStringLiteral("secondary"));
            }
        }
        QVERIFY(primaryIndex >= 0);

        // Secondaries may have sent before the primary listened: none of it may be lost.
        QStringList expected;
        for (int i = 0; i < Instances; ++i) {
            if (i != primaryIndex) {
                QCOMPARE(finish(processes[i]), ExitSent);
                expected << QStringLiteral("from-%1").arg(i);
            }
        }
        QCOMPARE(finish(start(QStringLiteral("core"), id, {QStringLiteral("quit")})), ExitSent);
        QCOMPARE(finish(processes[primaryIndex]), 0);
        QStringList messages = received();
        QCOMPARE(messages.takeLast(), QStringLiteral("quit"));
        messages.sort();
        QCOMPARE(messages, expected);
    }
}

void TestSingleApplication::sendFailsAtOnceWhenPrimaryIsGone_data()
{
    QTest::addColumn<bool>("killed");
    QTest::newRow("quit") << false;
    QTest::newRow("killed") << true;
}

void TestSingleApplication::sendFailsAtOnceWhenPrimaryIsGone()
{
    QFETCH(bool, killed);
    const QString id = freshId();
    QProcess* primary = start(QStringLiteral("core"), id);
    QCOMPARE(readLine(primary), QStringLiteral("primary"));
    // Sends with a time-out of 60 s once it reads a line.
    QProcess* late = start(QStringLiteral("wait"), id, {QStringLiteral("too late")});
    QCOMPARE(readLine(late), QStringLiteral("secondary"));

    if (killed) {
        primary->kill();
        QVERIFY(primary->waitForFinished(WaitMs));
    } else {
        QCOMPARE(finish(start(QStringLiteral("core"), id, {QStringLiteral("quit")})), ExitSent);
        QCOMPARE(finish(primary), 0);
    }
    late->write("\n");
    // Well before its time-out: nobody is there to wait for.
    QCOMPARE(finish(late), ExitNotSent);
}

void TestSingleApplication::messagesArriveInOrderPerSender()
{
    QSignalSpy spy(application(), &QtSingleApplication::messageReceived);
    QStringList messagesA;
    QStringList messagesB;
    for (int i = 0; i < 20; ++i) {
        messagesA << QStringLiteral("a%1").arg(i, 2, 10, QLatin1Char('0'));
        messagesB << QStringLiteral("b%1").arg(i, 2, 10, QLatin1Char('0'));
    }
    QProcess* senderA = start(QStringLiteral("core"), application()->id(), messagesA, false);
    QProcess* senderB = start(QStringLiteral("core"), application()->id(), messagesB, false);
    // This process is the primary: its event loop must run while the helpers send.
    QTRY_COMPARE_WITH_TIMEOUT(senderA->state(), QProcess::NotRunning, WaitMs);
    QTRY_COMPARE_WITH_TIMEOUT(senderB->state(), QProcess::NotRunning, WaitMs);
    QCOMPARE(senderA->exitCode(), ExitSent);
    QCOMPARE(senderB->exitCode(), ExitSent);

    QStringList fromA;
    QStringList fromB;
    for (const QList<QVariant>& arguments : std::as_const(spy))
        (arguments.at(0).toString().startsWith(QLatin1Char('a')) ? fromA : fromB)
            << arguments.at(0).toString();
    QCOMPARE(fromA, messagesA);
    QCOMPARE(fromB, messagesB);
}

void TestSingleApplication::activationWindow_data()
{
    QTest::addColumn<bool>("activateOnMessage");
    QTest::addColumn<bool>("minimized");
    QTest::addColumn<bool>("expectShown");

    QTest::newRow("hidden, activate") << true << false << true;
    QTest::newRow("minimized, activate") << true << true << true;
    QTest::newRow("hidden, no activation") << false << false << false;
    QTest::newRow("minimized, no activation") << false << true << false;
}

void TestSingleApplication::activationWindow()
{
    QFETCH(bool, activateOnMessage);
    QFETCH(bool, minimized);
    QFETCH(bool, expectShown);
    QtSingleApplication* app = application();

    auto window = std::make_unique<QWidget>();
    if (minimized)
        window->showMinimized();
    app->setActivationWindow(window.get(), true);
    // Setting it again must replace the first call's connection, not add to it.
    app->setActivationWindow(window.get(), activateOnMessage);
    QCOMPARE(app->activationWindow(), window.get());

    QSignalSpy spy(app, &QtSingleApplication::messageReceived);
    QProcess* sender = start(QStringLiteral("core"), app->id(), {QStringLiteral("wake up")}, false);
    QTRY_COMPARE_WITH_TIMEOUT(spy.size(), 1, WaitMs);
    QTRY_COMPARE_WITH_TIMEOUT(sender->state(), QProcess::NotRunning, WaitMs);
    QCOMPARE(sender->exitCode(), ExitSent);

    const bool shown = window->isVisible() && !(window->windowState() & Qt::WindowMinimized);
    QCOMPARE(shown, expectShown);

    // The window is not owned: once it is gone, activation does nothing.
    window.reset();
    QCOMPARE(app->activationWindow(), nullptr);
    app->activateWindow();
}

int main(int argc, char** argv)
{
    QStandardPaths::setTestModeEnabled(true);
    // Lock and socket of this process and of the helpers that talk to it stay in here.
    QTemporaryDir runtime(QDir::tempPath() + QStringLiteral("/singleapp-runtime-XXXXXX"));
    if (!runtime.isValid())
        return 1;
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime.path()));

    QtSingleApplication app(
        QStringLiteral("tst_singleapplication-%1").arg(QCoreApplication::applicationPid()), argc,
        argv);
    TestSingleApplication test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_singleapplication.moc"
