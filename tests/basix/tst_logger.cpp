#include <basix/Logger.h>
#include <basix/RotatingFileLoggerOutput.h>
#include <basix/StandardErrorLoggerOutput.h>

#include <TestSupport.h>

#include <QtTest/QtTest>

#include <thread>

#include <sys/wait.h>
#include <unistd.h>

using tvl::AbstractLoggerOutput;
using tvl::Logger;

namespace {

// Keeps every call: "header", "flush", or a record in formatRecord()'s form without the time.
class RecordingOutput : public AbstractLoggerOutput
{
public:
    explicit RecordingOutput(bool* destroyed = nullptr) : m_destroyed(destroyed) {}
    ~RecordingOutput() override { if (m_destroyed) *m_destroyed = true; }
    void writeLogHeader() override { call("header"); }
    void write(const QString& message, const QString& file, const QString& function, const QString& thread, int line,
               Logger::Level level, const QDateTime&, int threadId) override
    {
        call(formatRecord(message, file, function, thread, line, level, QDateTime(), threadId).mid(24));
        onWrite(message);
    }
    void flush() override { call("flush"); }

    QStringList take() { QMutexLocker locker(&m_mutex); return std::exchange(m_events, {}); }
    static QString records(const QStringList& events) // without their threads, joined by "|"
    {
        return events.filter(QRegularExpression("^(?!header$|flush$)")).join('|').remove(QRegularExpression(" \\[[^]]*\\]"));
    }
    QString takeRecords() { Logger::instance()->flush(); return records(take()); }

    std::function<void(const QString&)> onWrite = [](const QString&) {};
    bool overlapped = false;

private:
    void call(const QString& event)
    {
        overlapped |= m_busy.fetch_add(1) != 0;
        QMutexLocker locker(&m_mutex);
        m_events << event;
        m_busy.fetch_sub(1);
    }

    QMutex m_mutex;
    QStringList m_events;
    std::atomic<int> m_busy{0};
    bool* m_destroyed;
};

struct ScopedOutput : RecordingOutput // registered while it exists
{
    ScopedOutput() { Logger::instance()->addOutput(this); }
    ~ScopedOutput() override { Logger::instance()->removeOutput(this); }
};

void log(const QString& message, int level = Logger::Info) { Logger::instance()->log(message, QString("test"), QString("f"), 1, level); }

// How records survive the end of a child process; they go to standard error.
int childScenario(const QByteArray& scenario, int, char**)
{
    auto* output = new tvl::StandardErrorLoggerOutput;
    if (scenario == "late") {
        std::atexit([] { TVL_LOG(Logger::Info) << "late"; }); // before the logger exists: runs after its exit handler,
        Logger::instance()->addOutput(output); // which leaves this output registered, as it is not owned
        TVL_LOG(Logger::Info) << "early";
        return 0;
    }
    if (scenario == "forkFirst") { // only the child has an output
        Logger::instance();
        if (::fork() == 0) {
            Logger::instance()->addOutput(output, Logger::TakeOwnership);
            TVL_LOG(Logger::Info) << "in child";
            std::exit(0);
        }
        ::wait(nullptr);
        delete output;
        return 0;
    }
    Logger::instance()->addOutput(output, Logger::TakeOwnership);
    for (int i = 0; i < (scenario == "return" ? 20000 : 100); ++i)
        TVL_LOG(Logger::Info) << i;
    if (scenario == "fork") {
        Logger::instance()->flush();
        if (::fork() == 0) {
            ::alarm(20); // ends it should its exit handler hang
            TVL_LOG(Logger::Info) << "in child";
            std::exit(0); // runs the exit handler without an output thread
        }
        int status = 0;
        ::wait(&status);
        TVL_LOG(Logger::Info) << (WIFEXITED(status) && WEXITSTATUS(status) == 0 ? "after fork" : "child failed");
    } else if (scenario == "qFatal") {
        Logger::routeQtMessages(true);
        qFatal("qt gives up");
    } else if (scenario != "return") {
        TVL_LOG(Logger::Fatal) << "dying";
        scenario == "abort" ? std::abort() : ::_exit(3);
    }
    return 0;
}

} // namespace

class TestLogger : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { Logger::instance()->setMinimumLevel(Logger::Trace); }

    void recordsKeepOrderAcrossThreads()
    {
        constexpr int Threads = 8, PerThread = 5000;
        ScopedOutput output;
        std::vector<std::thread> threads;
        for (int t = 0; t < Threads; ++t) {
            threads.emplace_back([t] {
                ::pthread_setname_np(::pthread_self(), qPrintable("w" + QString::number(t)));
                for (int i = 0; i < PerThread; ++i)
                    log(QStringLiteral("%1 %2 %3").arg(t).arg(i).arg(::gettid()));
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        Logger::instance()->flush();
        const QStringList records = output.take().filter(QRegularExpression("^Info"));
        QCOMPARE(records.size(), Threads * PerThread);
        int next[Threads] = {};
        for (const QString& record : std::as_const(records)) {
            const QStringList parts = record.section(": ", 1).split(' '); // thread, number, thread id
            const QString number = QString::number(next[parts[0].toInt()]++);
            QCOMPARE(record, QStringLiteral("Info [w%1:%3] test:1 f: %1 %2 %3").arg(parts[0], number, parts[2]));
        }
        QVERIFY(!output.overlapped);
    }

    // An output sees exactly the records logged between its addition and its removal.
    void addRemoveAndFlush()
    {
        for (const bool owned : {false, true}) {
            bool destroyed = false;
            auto* output = new RecordingOutput(&destroyed);
            std::unique_ptr<RecordingOutput> keeper(owned ? nullptr : output);
            QStringList seen; // taken on the output thread, as an owned output is gone afterwards
            output->onWrite = [&seen, output](const QString& message) { if (message == "9999") seen = output->take(); };
            log("before");
            Logger::instance()->addOutput(output, owned ? Logger::TakeOwnership : Logger::KeepOwnership);
            Logger::instance()->addOutput(output); // a second time changes nothing
            for (int i = 0; i < 10000; ++i)
                log(QString::number(i));
            Logger::instance()->removeOutput(output);
            QCOMPARE(destroyed, owned);
            QCOMPARE(seen.value(0), "header");
            seen.removeAll("flush"); // how many depends on how records were batched
            QCOMPARE(seen.size(), 10001);
            QVERIFY(seen.value(1).endsWith(": 0") && seen.constLast().endsWith(": 9999"));
            if (keeper) {
                QCOMPARE(keeper->take().join('|').section('|', -1), "flush");
                log("later");
                QCOMPARE(keeper->takeRecords(), QString());
            }
        }
    }

    void levelsAndSources()
    {
        ScopedOutput output;
        TVL_LOG(Logger::Notice) << "hello" << 42;
        QCOMPARE(output.takeRecords(), QStringLiteral("Notice tests/basix/tst_logger:%1 levelsAndSources: hello 42").arg(__LINE__ - 1));
        Logger::instance()->setMinimumLevel(Logger::Warning);
        int evaluated = 0;
        TVL_LOG(Logger::Info) << ++evaluated;
        QCOMPARE(evaluated, 0);
        output.onWrite = [](const QString&) { QThread::usleep(200); }; // slow: a Fatal record waits for the ones before
        for (const int level : QList<int>{-5, Logger::Notice} + QList<int>(20, Logger::Error) + QList<int>{99}) // 99: Fatal
            log(QString::number(level), level);
        const QStringList events = output.take(); // at once: flushing first would prove nothing
        QCOMPARE(events.value(events.size() - 1), "flush");
        QCOMPARE(RecordingOutput::records(events), QString("Error test:1 f: 5|").repeated(20) + "Fatal test:1 f: 99");
    }

    void qtMessages()
    {
        ScopedOutput output;
        Logger::routeQtMessages(true);
        for (const QtMsgType type : {QtDebugMsg, QtInfoMsg, QtWarningMsg, QtCriticalMsg})
            qt_message_output(type, QMessageLogContext("src/a.cpp", 12, "caller", "tvl.test"), "routed");
        qt_message_output(QtWarningMsg, QMessageLogContext(nullptr, 0, nullptr, "tvl.test"), "no file");
        Logger::routeQtMessages(false);
        QTest::ignoreMessage(QtWarningMsg, "not routed"); // Qt Test's own handler is back
        qWarning("not routed");
        QCOMPARE(output.takeRecords(), "Debug src/a.cpp:12 caller: routed|Info src/a.cpp:12 caller: routed|"
                                       "Warning src/a.cpp:12 caller: routed|Error src/a.cpp:12 caller: routed|Warning tvl.test no file");
    }

    void streamFormatting()
    {
        const auto stream = [] { return Logger::Stream(QString("file"), QString("function"), 1, Logger::Info); };
        QCOMPARE((stream() << QString("a") << QStringView(u"b") << QLatin1String("c") << "dé" << QChar(u'ü') << 'x' << "" << QString() << "e").message(),
                 "a b c dé ü x   e");
        QCOMPARE((stream() << true << -1 << 2u << -3L << 4UL << LLONG_MIN << ULLONG_MAX).message(), "true -1 2 -3 4 -9223372036854775808 18446744073709551615");
        QCOMPARE((stream() << 0.1 << 2.0 << 1e21 << 1.0 / 3 << -0.0).message(), "0.1 2 1e+21 0.3333333333333333 -0");
        QCOMPARE((stream() << QUrl("https://u@example.org:8080/a%20b?q=1#f") << QStringList{"a", "b"} << QStringList() << QByteArray("gr\xc3\xbc\xc3\x9f")).message(),
                 "https://u@example.org:8080/a b?q=1#f (a, b) () grüß");
        QCOMPARE((stream() << QVariant() << QVariant(7) << QVariant(false) << QVariant(0.1) << QVariant("text") << QVariant(QByteArray("raw"))).message(),
                 "QVariant() 7 false 0.1 text raw");
        QCOMPARE((stream() << QVariant(QVariantList{1, "x", QVariant(), QVariantList{2, 3}}) << QVariant(QVariantMap{{"b", 2}, {"a", QVariantList{1}}})
                           << QVariant(QVariantHash{{"z", 1}, {"y", 2}}) << QVariant(QStringList{"p", "q"}) << QVariant::fromValue(QList<int>{4, 5})).message(),
                 "(1, x, QVariant(), (2, 3)) {a: (1), b: 2} {y: 2, z: 1} (p, q) (4, 5)");
        // Other types as the QVariant that holds them.
        QCOMPARE((stream() << QList<int>{4, 5} << QMap<QString, int>{{"k", 1}} << std::pair(1, 2.5) << QSize(3, 4)).message(),
                 "(4, 5) {k: 1} std::pair(1,2.5) QSize(3, 4)");
    }

    void childProcess_data()
    {
        QTest::addColumn<bool>("exitsNormally");
        QTest::addColumn<int>("numbers"); // records "0", "1", ... logged first
        QTest::addColumn<QStringList>("last"); // patterns of the lines after them
        QTest::newRow("return") << true << 20000 << QStringList();
        QTest::newRow("abort") << false << 100 << QStringList{"Fatal .* dying"};
        QTest::newRow("_exit") << true << 100 << QStringList{"Fatal .* dying"};
        QTest::newRow("qFatal") << false << 100 << QStringList{"Fatal .* qt gives up"};
        QTest::newRow("late") << true << 0 << QStringList{"early", "late"};
        QTest::newRow("fork") << true << 100 << QStringList{"in child", "after fork"};
        QTest::newRow("forkFirst") << true << 0 << QStringList{"in child"};
    }

    void childProcess()
    {
        QFETCH(int, numbers);
        QFETCH(QStringList, last);
        const testsupport::ChildResult child = testsupport::runScenario(QTest::currentDataTag());
        QVERIFY(child.finished);
        QTEST(child.status == QProcess::NormalExit, "exitsNormally");
        for (int i = numbers - 1; i >= 0; --i)
            last.prepend(QString::number(i));
        // The records only: a sanitizer may add lines of its own.
        const QStringList lines = QString::fromUtf8(child.err).split('\n').filter(QRegularExpression("^\\d{4}-\\d\\d-\\d\\d "));
        QCOMPARE(lines.size(), last.size());
        for (qsizetype i = 0; i < lines.size(); ++i)
            QVERIFY2(lines.at(i).contains(QRegularExpression(' ' + last.at(i) + '$')), qPrintable(lines.at(i)));
    }

    void formatRecord()
    {
        qputenv("TZ", "TST-3"); // three hours east of UTC, without daylight saving
        ::tzset();
        const QDateTime utc(QDate(2026, 1, 2), QTime(23, 4, 5, 6), Qt::UTC);
        QCOMPARE(AbstractLoggerOutput::formatRecord("", "", "", "", 0, Logger::Info, utc, 7), "2026-01-03 02:04:05.006 Info [7]");
        const std::tuple<QString, QString, QString, QString, int, int, const char*> rows[] = { // what follows the time
            {"text", "lib/Info", "load", "main", 88, Logger::Warning, "Warning [main:4711] lib/Info:88 load: text"},
            {"text", "lib/Info", QString(), "main", 88, Logger::Info, "Info [main:4711] lib/Info:88 text"},
            {"text", "qt.network", QString(), "main", 0, Logger::Debug, "Debug [main:4711] qt.network text"},
            {"text", QString(), "load", "main", 5, Logger::Error, "Error [main:4711] load: text"},
            {"text", "lib/Info", "load", QString(), 88, Logger::Trace, "Trace [4711] lib/Info:88 load: text"},
            {QString(), "lib/Info", "load", "main", 88, Logger::Notice, "Notice [main:4711] lib/Info:88 load:"},
            {"first\n  second\n", "lib/Info", "load", "main", 88, 9, "9 [main:4711] lib/Info:88 load: first\n  second\n"}};
        for (const auto& [message, file, function, thread, line, level, expected] : rows)
            QCOMPARE(AbstractLoggerOutput::formatRecord(message, file, function, thread, line, Logger::Level(level), utc, 4711).mid(24), expected);
    }

    // A file is given up (older ones shifted, the oldest deleted) only when the next line would not fit.
    void rotation()
    {
        const QDateTime epoch = QDateTime::fromMSecsSinceEpoch(0);
        const auto line = [&](int i) { return AbstractLoggerOutput::formatRecord(QString::number(1000 + i), "basix/Test", "run", "main", 10, Logger::Info, epoch, 42); };
        // Backups, records, bytes in the file before, files in the end (the current one included).
        for (const auto& [backups, records, existing, files] :
             {std::tuple{3, 200, 0, 4}, {1, 200, 0, 2}, {0, 200, 0, 1}, {3, 10, 0, 1}, {3, 16, 0, 2}, {1, 1, 950, 2}}) {
            QTemporaryDir dir;
            const QString path = dir.filePath("not/there/yet/app.log");
            if (existing)
                testsupport::writeFile(path, QByteArray(existing, 'x'));
            {
                tvl::RotatingFileLoggerOutput output(path, 1000, backups);
                for (int i = 0; i < records; ++i) // buffered until the file is given up or the output deleted
                    output.write(QString::number(1000 + i), "basix/Test", "run", "main", 10, Logger::Info, epoch, 42);
            }
            QByteArray kept, expected(existing, 'x'); // oldest first
            for (int index = files - 1; index >= 0; --index)
                kept += testsupport::readFile(index ? path + '.' + QString::number(index) : path);
            for (int i = qMax(0, records - (records - 1) % 15 - 1 - (files - 1) * 15); i < records; ++i) // 15 lines a file
                expected += line(i).toUtf8() + '\n';
            QCOMPARE(kept, expected);
            QCOMPARE(int(QDir(QFileInfo(path).path()).entryList(QDir::Files).size()), files); // and no more
        }
    }
};

TEST_MAIN_WITH_SCENARIOS(TestLogger, QCoreApplication, childScenario)
#include "tst_logger.moc"
