#include <basix/RotatingFileLoggerOutput.h>
#include <basix/StandardErrorLoggerOutput.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>
#include <QtCore/QTemporaryFile>
#include <QtTest/QtTest>

#include <ctime>
#include <unistd.h>

using tvl::AbstractLoggerOutput;
using tvl::Logger;

namespace {

const QDateTime Local(QDate(2026, 11, 21), QTime(14, 3, 7, 512));

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray lineFor(int number)
{
    return AbstractLoggerOutput::formatRecord(QStringLiteral("record %1").arg(number, 4, 10, QLatin1Char('0')),
                                              QStringLiteral("basix/Test"), QStringLiteral("run"),
                                              QStringLiteral("main"), 10, Logger::Info, Local, 42)
               .toUtf8()
        + '\n';
}

void writeRecord(AbstractLoggerOutput& output, int number)
{
    output.write(QStringLiteral("record %1").arg(number, 4, 10, QLatin1Char('0')),
                 QStringLiteral("basix/Test"), QStringLiteral("run"), QStringLiteral("main"), 10,
                 Logger::Info, Local, 42);
}

} // namespace

class TestLoggerOutputs : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void formatRecord_data();
    void formatRecord();
    void standardErrorWritesAtFlush();
    void rotation_data();
    void rotation();
    void existingFileCountsTowardsTheCap();
    void unwritableLocationIsReported();
};

void TestLoggerOutputs::initTestCase()
{
    // Three hours east of UTC, without daylight saving: local and UTC times differ visibly.
    qputenv("TZ", "TST-3");
    ::tzset();
}

void TestLoggerOutputs::formatRecord_data()
{
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("function");
    QTest::addColumn<QString>("thread");
    QTest::addColumn<int>("line");
    QTest::addColumn<int>("level");
    QTest::addColumn<QDateTime>("time");
    QTest::addColumn<QString>("expected");
    const QString file = QStringLiteral("libupdater/UpdaterPluginInfo");
    const QString function = QStringLiteral("loadPlugin"), main = QStringLiteral("main");
    const QString text = QStringLiteral("text");
    const auto row = [&](const char* name, const QString& message, const QString& file,
                         const QString& function, const QString& thread, int line, int level,
                         const char* expected, const QDateTime& time = Local) {
        QTest::newRow(name) << message << file << function << thread << line << level << time
                            << QString::fromUtf8(expected);
    };
    row("complete", text, file, function, main, 88, Logger::Warning,
        "2026-11-21 14:03:07.512 Warning [main:4711] libupdater/UpdaterPluginInfo:88 loadPlugin: text");
    row("utc time shown local", text, file, function, main, 88, Logger::Fatal,
        "2026-01-03 02:04:05.006 Fatal [main:4711] libupdater/UpdaterPluginInfo:88 loadPlugin: text",
        QDateTime(QDate(2026, 1, 2), QTime(23, 4, 5, 6), Qt::UTC));
    row("no function", text, file, QString(), main, 88, Logger::Info,
        "2026-11-21 14:03:07.512 Info [main:4711] libupdater/UpdaterPluginInfo:88 text");
    row("no line", text, QStringLiteral("qt.network"), QString(), main, 0, Logger::Debug,
        "2026-11-21 14:03:07.512 Debug [main:4711] qt.network text");
    row("no file", text, QString(), function, main, 5, Logger::Error,
        "2026-11-21 14:03:07.512 Error [main:4711] loadPlugin: text");
    row("no thread name", text, file, function, QString(), 88, Logger::Trace,
        "2026-11-21 14:03:07.512 Trace [4711] libupdater/UpdaterPluginInfo:88 loadPlugin: text");
    row("no message", QString(), file, function, main, 88, Logger::Notice,
        "2026-11-21 14:03:07.512 Notice [main:4711] libupdater/UpdaterPluginInfo:88 loadPlugin:");
    row("several lines", QStringLiteral("first\n  second\n"), file, function, main, 88, 2,
        "2026-11-21 14:03:07.512 Info [main:4711] libupdater/UpdaterPluginInfo:88 loadPlugin: "
        "first\n  second\n");
    row("unknown level", text, file, function, main, 88, 9,
        "2026-11-21 14:03:07.512 9 [main:4711] libupdater/UpdaterPluginInfo:88 loadPlugin: text");
}

void TestLoggerOutputs::formatRecord()
{
    QFETCH(QString, message);
    QFETCH(QString, file);
    QFETCH(QString, function);
    QFETCH(QString, thread);
    QFETCH(int, line);
    QFETCH(int, level);
    QFETCH(QDateTime, time);
    QTEST(AbstractLoggerOutput::formatRecord(message, file, function, thread, line,
                                             Logger::Level(level), time, 4711),
          "expected");
}

void TestLoggerOutputs::standardErrorWritesAtFlush()
{
    QTemporaryFile capture;
    QVERIFY(capture.open());
    const int savedError = ::dup(STDERR_FILENO);
    ::dup2(capture.handle(), STDERR_FILENO);
    QByteArray beforeFlush;
    {
        tvl::StandardErrorLoggerOutput output;
        output.writeLogHeader();
        output.write(QStringLiteral("Gr\u00fc\u00dfe"), QStringLiteral("a"), QString(),
                     QStringLiteral("t"), 1, Logger::Info, Local, 7);
        writeRecord(output, 2);
        beforeFlush = readFile(capture.fileName());
        output.flush();
    }
    ::dup2(savedError, STDERR_FILENO);
    ::close(savedError);

    QVERIFY(beforeFlush.isEmpty());
    QCOMPARE(readFile(capture.fileName()),
             QByteArray("2026-11-21 14:03:07.512 Info [t:7] a:1 Gr\xc3\xbc\xc3\x9f" "e\n")
                 + lineFor(2));
}

void TestLoggerOutputs::rotation_data()
{
    QTest::addColumn<int>("backups");
    QTest::addColumn<int>("records");
    QTest::addColumn<int>("files"); // the current one included
    QTest::addColumn<bool>("everythingKept");
    // lineFor() is 70 bytes long, the cap holds 14 of them.
    QTest::newRow("three backups") << 3 << 200 << 4 << false;
    QTest::newRow("one backup") << 1 << 200 << 2 << false;
    QTest::newRow("no backup") << 0 << 200 << 1 << false;
    QTest::newRow("not full yet") << 3 << 10 << 1 << true;
    QTest::newRow("two files so far") << 3 << 15 << 2 << true;
}

void TestLoggerOutputs::rotation()
{
    QFETCH(int, backups);
    QFETCH(int, records);
    QFETCH(int, files);
    QCOMPARE(lineFor(0).size(), 70);
    constexpr qint64 Cap = 1000;
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("not/there/yet/app.log"));
    {
        tvl::RotatingFileLoggerOutput output(path, Cap, backups);
        for (int i = 0; i < records; ++i) {
            writeRecord(output, i);
            if (i % 7 == 0)
                output.flush();
        }
        output.flush();
        QCOMPARE(output.errorString(), QString());
    }

    // Oldest first.
    QList<QByteArray> contents;
    for (int index = files - 1; index >= 1; --index)
        contents << readFile(path + QLatin1Char('.') + QString::number(index));
    contents << readFile(path);
    QVERIFY(!QFile::exists(path + QLatin1Char('.') + QString::number(files)));

    QByteArray all;
    for (int i = 0; i < records; ++i)
        all += lineFor(i);
    const QByteArray kept = contents.join();
    QVERIFY(all.endsWith(kept)); // nothing lost or reordered between the files kept
    QTEST(kept == all, "everythingKept");
    for (qsizetype i = 0; i < contents.size(); ++i) {
        QVERIFY(!contents.at(i).isEmpty());
        QVERIFY(contents.at(i).size() <= Cap);
        // A file was only given up when the next line did not fit.
        if (i + 1 < contents.size())
            QVERIFY(contents.at(i).size() + lineFor(0).size() > Cap);
    }
}

void TestLoggerOutputs::existingFileCountsTowardsTheCap()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("app.log"));
    const QByteArray old(950, 'x');
    {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(old);
    }
    tvl::RotatingFileLoggerOutput output(path, 1000, 2);
    writeRecord(output, 1);
    output.flush();
    QCOMPARE(readFile(path + QStringLiteral(".1")), old);
    QCOMPARE(readFile(path), lineFor(1));
}

void TestLoggerOutputs::unwritableLocationIsReported()
{
    // A regular file where a directory should be: refused even to root.
    QTemporaryFile blocker;
    QVERIFY(blocker.open());
    const QString path = blocker.fileName() + QStringLiteral("/logs/app.log");
    tvl::RotatingFileLoggerOutput output(path);
    output.writeLogHeader();
    writeRecord(output, 1);
    output.flush();
    QVERIFY(output.errorString().contains(blocker.fileName()));
    QVERIFY(!QFile::exists(path));
}

QTEST_GUILESS_MAIN(TestLoggerOutputs)

#include "tst_loggeroutputs.moc"
