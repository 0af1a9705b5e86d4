#include <basix/AbstractLoggerOutput.h>
#include <basix/Logger.h>
#include <basix/RotatingFileLoggerOutput.h>

#include <QtCore/QFile>
#include <QtCore/QMutex>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>
#include <QtCore/QThread>
#include <QtTest/QtTest>

#include <atomic>
#include <csignal>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

using tvl::Logger;

namespace {

struct Record
{
    QString message, file, function, threadName;
    int line;
    Logger::Level level;
    int threadId;
};

// Keeps what it is given ("header" and "flush" stand for those calls) and notices overlapping calls.
class RecordingOutput : public tvl::AbstractLoggerOutput
{
public:
    explicit RecordingOutput(std::shared_ptr<bool> destroyed = {}) : m_destroyed(destroyed) {}
    ~RecordingOutput() override
    {
        if (m_destroyed)
            *m_destroyed = true;
    }
    void writeLogHeader() override { call(QStringLiteral("header")); }
    void write(const QString& message, const QString& file, const QString& function,
               const QString& threadName, int line, Logger::Level level, const QDateTime&,
               int threadId) override
    {
        call(message, Record{message, file, function, threadName, line, level, threadId});
        if (onWrite)
            onWrite(message);
    }
    void flush() override { call(QStringLiteral("flush")); }

    QList<Record> takeRecords()
    {
        QMutexLocker locker(&m_mutex);
        return std::exchange(m_records, {});
    }
    QStringList takeEvents()
    {
        QMutexLocker locker(&m_mutex);
        return std::exchange(m_events, {});
    }

    std::function<void(const QString&)> onWrite;
    std::atomic<bool> overlapped{false};

private:
    void call(const QString& event, const std::optional<Record>& record = {})
    {
        if (m_busy.fetch_add(1) != 0)
            overlapped = true;
        {
            QMutexLocker locker(&m_mutex);
            m_events << event;
            if (record)
                m_records << *record;
        }
        m_busy.fetch_sub(1);
    }

    QMutex m_mutex;
    QList<Record> m_records;
    QStringList m_events;
    std::atomic<int> m_busy{0};
    std::shared_ptr<bool> m_destroyed;
};

// Registered for the length of a test function.
struct ScopedOutput : RecordingOutput
{
    ScopedOutput() { Logger::instance()->addOutput(this); }
    ~ScopedOutput() override { Logger::instance()->removeOutput(this); }
};

QStringList messagesOf(const QList<Record>& records)
{
    QStringList messages;
    for (const Record& record : records)
        messages << record.message;
    return messages;
}

void log(const QString& message, Logger::Level level = Logger::Info)
{
    Logger::instance()->log(message, QStringLiteral("test"), QStringLiteral("f"), 1, level);
}

using StreamFill = void (*)(Logger::Stream&);

} // namespace

Q_DECLARE_METATYPE(StreamFill)
Q_DECLARE_METATYPE(Logger::Level)
Q_DECLARE_METATYPE(Logger::Ownership)

class TestLogger : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { Logger::instance()->setMinimumLevel(Logger::Trace); }

    void recordsKeepOrderAcrossThreads();
    void threadNames();
    void addedOutputSeesOnlyLaterRecords();
    void removeOutputDeliversEarlierRecords_data();
    void removeOutputDeliversEarlierRecords();
    void minimumLevel_data();
    void minimumLevel();
    void fatalIsWrittenBeforeLogReturns();
    void callsFromInsideAnOutput();
    void streamFormatting_data();
    void streamFormatting();
    void tvlLogNamesItsSource();
    void tvlLogSkipsDisabledLevels();
    void qtMessages_data();
    void qtMessages();
    void childProcess_data();
    void childProcess();
};

void TestLogger::recordsKeepOrderAcrossThreads()
{
    constexpr int Threads = 8, PerThread = 5000;
    ScopedOutput output;
    int ids[Threads];
    std::vector<std::thread> threads;
    for (int t = 0; t < Threads; ++t) {
        threads.emplace_back([t, &ids] {
            ids[t] = int(::gettid());
            for (int i = 0; i < PerThread; ++i)
                log(QStringLiteral("%1 %2").arg(t).arg(i));
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    Logger::instance()->flush();

    const QList<Record> records = output.takeRecords();
    QCOMPARE(records.size(), Threads * PerThread);
    int next[Threads] = {};
    for (const Record& record : records) {
        const QStringList parts = record.message.split(QLatin1Char(' '));
        const int t = parts.at(0).toInt();
        QCOMPARE(parts.at(1).toInt(), next[t]++);
        QCOMPARE(record.threadId, ids[t]);
    }
    QVERIFY(!output.overlapped);
    QCOMPARE(output.takeEvents().constLast(), QStringLiteral("flush"));
}

void TestLogger::threadNames()
{
    ScopedOutput output;
    std::thread([] {
        ::pthread_setname_np(::pthread_self(), "os-named");
        log(QStringLiteral("std"));
    }).join();
    std::unique_ptr<QThread> early(QThread::create([] { log(QStringLiteral("early")); }));
    early->setObjectName(QStringLiteral("named-before-start"));
    early->start();
    std::unique_ptr<QThread> late(QThread::create([] {
        log(QStringLiteral("unnamed"));
        QThread::currentThread()->setObjectName(QStringLiteral("named-while-running"));
        log(QStringLiteral("late"));
    }));
    late->start();
    QVERIFY(early->wait() && late->wait());
    log(QStringLiteral("main"));
    Logger::instance()->flush();

    QHash<QString, QString> names;
    for (const Record& record : output.takeRecords())
        names.insert(record.message, record.threadName);
    QCOMPARE(names.value(QStringLiteral("std")), QStringLiteral("os-named"));
    QCOMPARE(names.value(QStringLiteral("early")), QStringLiteral("named-before-start"));
    QVERIFY(names.value(QStringLiteral("unnamed")) != QStringLiteral("named-while-running"));
    QCOMPARE(names.value(QStringLiteral("late")), QStringLiteral("named-while-running"));
    QCOMPARE(names.value(QStringLiteral("main")), QStringLiteral("tst_logger"));
}

void TestLogger::addedOutputSeesOnlyLaterRecords()
{
    RecordingOutput output;
    log(QStringLiteral("before"));
    Logger::instance()->addOutput(&output);
    Logger::instance()->addOutput(&output); // a second time changes nothing
    log(QStringLiteral("after"));
    QCOMPARE(Logger::instance()->outputs().count(&output), 1);
    Logger::instance()->removeOutput(&output);
    QVERIFY(!Logger::instance()->outputs().contains(&output));
    log(QStringLiteral("removed"));
    Logger::instance()->flush();
    QStringList events = output.takeEvents();
    QCOMPARE(events.constLast(), QStringLiteral("flush"));
    events.removeAll(QStringLiteral("flush")); // how many depends on how records were batched
    QCOMPARE(events, QStringList({QStringLiteral("header"), QStringLiteral("after")}));
}

void TestLogger::removeOutputDeliversEarlierRecords_data()
{
    QTest::addColumn<Logger::Ownership>("ownership");
    QTest::newRow("kept") << Logger::KeepOwnership;
    QTest::newRow("owned") << Logger::TakeOwnership;
}

void TestLogger::removeOutputDeliversEarlierRecords()
{
    QFETCH(Logger::Ownership, ownership);
    auto destroyed = std::make_shared<bool>(false);
    auto* output = new RecordingOutput(destroyed);
    std::unique_ptr<RecordingOutput> keeper(ownership == Logger::KeepOwnership ? output : nullptr);
    QStringList seen; // taken on the output thread, as an owned output is gone afterwards
    output->onWrite = [&seen, output](const QString& message) {
        if (message == QLatin1String("9999"))
            seen = output->takeEvents();
    };
    Logger::instance()->addOutput(output, ownership);
    for (int i = 0; i < 10000; ++i)
        log(QString::number(i));
    Logger::instance()->removeOutput(output);

    QCOMPARE(*destroyed, ownership == Logger::TakeOwnership);
    QCOMPARE(seen.count(QStringLiteral("header")), 1);
    QCOMPARE(seen.size() - seen.count(QStringLiteral("flush")), 10001);
    if (keeper) {
        QCOMPARE(keeper->takeEvents().constLast(), QStringLiteral("flush"));
        log(QStringLiteral("later"));
        Logger::instance()->flush();
        QVERIFY(keeper->takeEvents().isEmpty());
    }
}

void TestLogger::minimumLevel_data()
{
    QTest::addColumn<Logger::Level>("minimum");
    QTest::addColumn<QString>("kept");
    // "L" and "H" are logged with numbers outside the levels, and taken as Trace and Fatal.
    QTest::newRow("trace") << Logger::Trace << QStringLiteral("L0123456H");
    QTest::newRow("notice") << Logger::Notice << QStringLiteral("3456H");
    QTest::newRow("fatal") << Logger::Fatal << QStringLiteral("6H");
}

void TestLogger::minimumLevel()
{
    QFETCH(Logger::Level, minimum);
    QFETCH(QString, kept);
    ScopedOutput output;
    Logger::instance()->setMinimumLevel(minimum);
    QCOMPARE(Logger::instance()->minimumLevel(), minimum);
    QString enabled;
    Logger::instance()->log(QStringLiteral("L"), QString(), QString(), 0, -5);
    for (int level = Logger::Trace; level <= Logger::Fatal; ++level) {
        if (Logger::isEnabled(Logger::Level(level)))
            enabled += QString::number(level);
        log(QString::number(level), Logger::Level(level));
    }
    Logger::instance()->log(QStringLiteral("H"), QString(), QString(), 0, 99);
    Logger::instance()->flush();
    const QList<Record> records = output.takeRecords();
    QCOMPARE(messagesOf(records).join(QString()), kept);
    QCOMPARE(records.constLast().level, Logger::Fatal);
    QCOMPARE(enabled, QString(kept).remove(u'L').remove(u'H'));
}

void TestLogger::fatalIsWrittenBeforeLogReturns()
{
    ScopedOutput output;
    output.onWrite = [](const QString&) { QThread::usleep(200); };
    for (int i = 0; i < 50; ++i)
        log(QString::number(i));
    log(QStringLiteral("fatal"), Logger::Fatal);
    QCOMPARE(output.takeRecords().size(), 51);
    QCOMPARE(output.takeEvents().constLast(), QStringLiteral("flush"));
}

void TestLogger::callsFromInsideAnOutput()
{
    QTemporaryFile capture; // standard error, for the length of the test
    QVERIFY(capture.open());
    const int savedError = ::dup(STDERR_FILENO);
    ::dup2(capture.handle(), STDERR_FILENO);

    auto destroyed = std::make_shared<bool>(false);
    auto* output = new RecordingOutput(destroyed);
    output->onWrite = [output](const QString& message) {
        if (message != QLatin1String("trigger"))
            return;
        log(QStringLiteral("from inside"), Logger::Warning);
        Logger::instance()->flush();
        Logger::instance()->removeOutput(output);
    };
    Logger::instance()->addOutput(output, Logger::TakeOwnership);
    log(QStringLiteral("trigger"));
    // The first flush may be queued before the output asks for its removal; the second is not.
    Logger::instance()->flush();
    Logger::instance()->flush();
    const bool removed = !Logger::instance()->outputs().contains(output);
    ::dup2(savedError, STDERR_FILENO);
    ::close(savedError);

    QVERIFY(removed);
    QVERIFY(*destroyed);
    QFile written(capture.fileName()); // the capture's own offset moved with the writes
    QVERIFY(written.open(QIODevice::ReadOnly));
    QVERIFY(written.readAll().contains(" Warning [tvl-logger:"));
}

void TestLogger::streamFormatting_data()
{
    QTest::addColumn<StreamFill>("fill");
    QTest::addColumn<QString>("message");
    const auto row = [](const char* name, StreamFill fill, const QString& message) {
        QTest::newRow(name) << fill << message;
    };
    row("strings", [](Logger::Stream& s) {
        s << QStringLiteral("a") << QStringView(u"b") << QLatin1String("c") << "d\xc3\xa9";
    }, QStringLiteral("a b c d\u00e9"));
    row("characters", [](Logger::Stream& s) { s << QChar(u'\u00fc') << 'x'; },
        QStringLiteral("\u00fc x"));
    row("empty items keep their separator",
        [](Logger::Stream& s) { s << "" << "b" << QString() << "d"; }, QStringLiteral(" b  d"));
    row("booleans", [](Logger::Stream& s) { s << true << false; }, QStringLiteral("true false"));
    row("integers", [](Logger::Stream& s) {
        s << -1 << 2u << -3L << 4UL << std::numeric_limits<long long>::min()
          << std::numeric_limits<unsigned long long>::max();
    }, QStringLiteral("-1 2 -3 4 -9223372036854775808 18446744073709551615"));
    row("doubles", [](Logger::Stream& s) { s << 0.1 << 2.0 << 1e21 << 1.0 / 3 << -0.0; },
        QStringLiteral("0.1 2 1e+21 0.3333333333333333 -0"));
    row("url", [](Logger::Stream& s) {
        s << QUrl(QStringLiteral("https://user@example.org:8080/a%20b?q=1#f"));
    }, QStringLiteral("https://user@example.org:8080/a b?q=1#f"));
    row("string lists", [](Logger::Stream& s) {
        s << QStringList{QStringLiteral("a"), QStringLiteral("b")} << QStringList();
    }, QStringLiteral("(a, b) ()"));
    row("bytes", [](Logger::Stream& s) { s << QByteArray("gr\xc3\xbc\xc3\x9f"); },
        QStringLiteral("gr\u00fc\u00df"));
    row("variant scalars", [](Logger::Stream& s) {
        s << QVariant() << QVariant(7) << QVariant(true) << QVariant(0.1)
          << QVariant(QStringLiteral("text")) << QVariant(QByteArray("raw"));
    }, QStringLiteral("QVariant() 7 true 0.1 text raw"));
    row("variant containers", [](Logger::Stream& s) {
        s << QVariant(QVariantList{1, QStringLiteral("x"), QVariant(), QVariantList{2, 3}})
          << QVariant(QVariantMap{{QStringLiteral("b"), 2}, {QStringLiteral("a"), QVariantList{1}}})
          << QVariant(QVariantHash{{QStringLiteral("z"), 1}, {QStringLiteral("y"), 2}})
          << QVariant(QStringList{QStringLiteral("p"), QStringLiteral("q")})
          << QVariant::fromValue(QList<int>{4, 5});
    }, QStringLiteral("(1, x, QVariant(), (2, 3)) {a: (1), b: 2} {y: 2, z: 1} (p, q) (4, 5)"));
}

void TestLogger::streamFormatting()
{
    QFETCH(StreamFill, fill);
    Logger::Stream stream(QStringLiteral("file"), QStringLiteral("function"), 1, Logger::Info);
    fill(stream);
    QTEST(stream.message(), "message");
}

void TestLogger::tvlLogNamesItsSource()
{
    ScopedOutput output;
    TVL_LOG(Logger::Notice) << "hello" << 42;
    const int line = __LINE__ - 1;
    Logger::Stream(QStringLiteral("given/file"), QStringLiteral("given"), 7, Logger::Error) << "x";
    Logger::instance()->flush();

    const QList<Record> records = output.takeRecords();
    QCOMPARE(records.size(), 2);
    const Record& macro = records.at(0);
    QCOMPARE(macro.message, QStringLiteral("hello 42"));
    QCOMPARE(macro.file, QStringLiteral("tests/basix/tst_logger"));
    QCOMPARE(macro.function, QStringLiteral("tvlLogNamesItsSource"));
    QCOMPARE(macro.line, line);
    QCOMPARE(macro.level, Logger::Notice);
    const Record& given = records.at(1);
    QCOMPARE(given.file + given.function + QString::number(given.line),
             QStringLiteral("given/filegiven7"));
    QCOMPARE(given.level, Logger::Error);
}

void TestLogger::tvlLogSkipsDisabledLevels()
{
    ScopedOutput output;
    int evaluated = 0;
    Logger::instance()->setMinimumLevel(Logger::Warning);
    TVL_LOG(Logger::Info) << ++evaluated;
    TVL_LOG(Logger::Warning) << ++evaluated;
    Logger::instance()->flush();
    QCOMPARE(evaluated, 1);
    QCOMPARE(messagesOf(output.takeRecords()), QStringList{QStringLiteral("1")});
}

void TestLogger::qtMessages_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<Logger::Level>("level");
    QTest::addColumn<QString>("source");
    const QByteArray file("src/a.cpp");
    const QString source = QString::fromLatin1(file);
    QTest::newRow("debug") << int(QtDebugMsg) << file << Logger::Debug << source;
    QTest::newRow("info") << int(QtInfoMsg) << file << Logger::Info << source;
    QTest::newRow("warning") << int(QtWarningMsg) << file << Logger::Warning << source;
    QTest::newRow("critical") << int(QtCriticalMsg) << file << Logger::Error << source;
    QTest::newRow("no file") << int(QtWarningMsg) << QByteArray() << Logger::Warning
                             << QStringLiteral("tvl.test");
}

void TestLogger::qtMessages()
{
    QFETCH(int, type);
    QFETCH(QByteArray, file);
    ScopedOutput output;
    Logger::routeQtMessages(true);
    const QMessageLogContext context(file.isEmpty() ? nullptr : file.constData(), 12, "caller",
                                     "tvl.test");
    qt_message_output(QtMsgType(type), context, QStringLiteral("routed"));
    Logger::routeQtMessages(false);
    QTest::ignoreMessage(QtWarningMsg, "not routed"); // Qt Test's own handler is back
    qWarning("not routed");
    Logger::instance()->flush();

    const QList<Record> records = output.takeRecords();
    QCOMPARE(records.size(), 1);
    QCOMPARE(records.at(0).message, QStringLiteral("routed"));
    QTEST(records.at(0).level, "level");
    QTEST(records.at(0).file, "source");
    QCOMPARE(records.at(0).function, QStringLiteral("caller"));
    QCOMPARE(records.at(0).line, 12);
}

// --- In a child process: how the process ends ----------------------------------------------------

namespace {

void logLate()
{
    TVL_LOG(Logger::Info) << "late";
}

int childMain(const QByteArray& scenario)
{
    auto* file = new tvl::RotatingFileLoggerOutput(qEnvironmentVariable("TST_LOGGER_FILE"), 1 << 26);
    if (scenario == "late") {
        // Registered before the logger exists, so it runs after the logger's exit handler. The
        // output is not owned and so stays registered (and reachable) after that handler.
        std::atexit(&logLate);
        Logger::instance()->addOutput(file);
        TVL_LOG(Logger::Info) << "early";
        return 0;
    }
    Logger::instance()->addOutput(file, Logger::TakeOwnership);
    if (scenario == "return") {
        for (int i = 0; i < 20000; ++i)
            TVL_LOG(Logger::Info) << i;
    } else if (scenario == "abort" || scenario == "_exit") {
        for (int i = 0; i < 100; ++i)
            TVL_LOG(Logger::Info) << i;
        TVL_LOG(Logger::Fatal) << "dying";
        if (scenario == "abort")
            std::abort();
        ::_exit(3);
    } else if (scenario == "qFatal") {
        Logger::routeQtMessages(true);
        qFatal("qt gives up");
    } else if (scenario == "fork") {
        TVL_LOG(Logger::Info) << "before fork";
        Logger::instance()->flush();
        const pid_t child = ::fork();
        if (child == 0) {
            TVL_LOG(Logger::Info) << "in child";
            std::exit(0); // runs the exit handler without an output thread
        }
        int status = 0; // a child stuck in its exit handler must not outlive the test
        QDeadlineTimer deadline(20000);
        while (::waitpid(child, &status, WNOHANG) == 0 && !deadline.hasExpired())
            QThread::msleep(10);
        if (deadline.hasExpired()) {
            ::kill(child, SIGKILL);
            ::waitpid(child, &status, 0);
        }
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
            TVL_LOG(Logger::Info) << "child failed";
        TVL_LOG(Logger::Info) << "after fork";
    }
    return 0;
}

} // namespace

void TestLogger::childProcess_data()
{
    QTest::addColumn<bool>("exitsNormally");
    QTest::addColumn<QStringList>("messages");
    QTest::addColumn<QString>("lastLevel");
    QStringList numbers;
    for (int i = 0; i < 20000; ++i)
        numbers << QString::number(i);
    const QStringList dying = numbers.mid(0, 100) << QStringLiteral("dying");
    const QString info = QStringLiteral("Info"), fatal = QStringLiteral("Fatal");
    QTest::newRow("return") << true << numbers << info;
    QTest::newRow("abort") << false << dying << fatal;
    QTest::newRow("_exit") << true << dying << fatal;
    QTest::newRow("qFatal") << false << QStringList{QStringLiteral("qt gives up")} << fatal;
    QTest::newRow("late") << true << QStringList{QStringLiteral("early"), QStringLiteral("late")}
                          << info;
    QTest::newRow("fork") << true
                          << QStringList{QStringLiteral("before fork"), QStringLiteral("in child"),
                                         QStringLiteral("after fork")}
                          << info;
}

void TestLogger::childProcess()
{
    QFETCH(QStringList, messages);
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("child.log"));
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("TST_LOGGER_CHILD"), QString::fromLatin1(QTest::currentDataTag()));
    environment.insert(QStringLiteral("TST_LOGGER_FILE"), path);
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(QCoreApplication::applicationFilePath(), QStringList());
    const qint64 pid = process.processId();
    QVERIFY(process.waitForFinished(60000));
    QTEST(process.exitStatus() == QProcess::NormalExit, "exitsNormally");

    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
    QVERIFY(!lines.isEmpty());
    // Without an application object the header names the program.
    const QString header = lines.takeFirst();
    QVERIFY2(header.startsWith(QStringLiteral("---- tst_logger (pid %1) started ").arg(pid)),
             qPrintable(header));
    QCOMPARE(lines.size(), messages.size());
    for (qsizetype i = 0; i < lines.size(); ++i)
        QVERIFY2(lines.at(i).endsWith(QLatin1Char(' ') + messages.at(i)), qPrintable(lines.at(i)));
    QFETCH(QString, lastLevel);
    QVERIFY(lines.constLast().contains(QLatin1Char(' ') + lastLevel + QLatin1String(" [")));
}

int main(int argc, char** argv)
{
    const QByteArray scenario = qgetenv("TST_LOGGER_CHILD");
    if (!scenario.isEmpty())
        return childMain(scenario);
    QCoreApplication app(argc, argv);
    TestLogger test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_logger.moc"
