#include <libupdater/UpdaterLogCollector.h>

#include <basix/Logger.h>

#include <QtCore/QThread>
#include <QtTest/QtTest>

using tvl::Logger;
using tvl::updater::UpdaterLogCollector;

using Indices = QList<int>;

class TestLogCollector : public QObject
{
    Q_OBJECT

private slots:
    void eviction_data();
    void eviction();
    void throughLogger();
};

void TestLogCollector::eviction_data()
{
    // Record i has level levels[i] and text "m<i>"; `kept` are the records left at the end,
    // oldest first; `dropped` those never added, which must not be signalled either.
    QTest::addColumn<int>("maxLines");
    QTest::addColumn<Indices>("levels");
    QTest::addColumn<Indices>("kept");
    QTest::addColumn<Indices>("dropped");

    QTest::newRow("maxLines + 1 lines before the next write trims")
        << 4 << Indices{1, 1, 1, 1, 1} << Indices{0, 1, 2, 3, 4} << Indices{};
    QTest::newRow("ordinary lines only: emptied")
        << 4 << Indices{1, 4, 0, 3, 2, 1} << Indices{5} << Indices{};
    QTest::newRow("alternating 1 and 5")
        << 10 << Indices{1, 5, 1, 5, 1, 5, 1, 5, 1, 5, 1, 5} << Indices{1, 3, 5, 7, 9, 11}
        << Indices{};
    QTest::newRow("stops at a severe line below half")
        << 10 << Indices{1, 1, 1, 1, 1, 1, 1, 5, 1, 1, 1, 1} << Indices{7, 8, 9, 10, 11}
        << Indices{};
    QTest::newRow("exactly half: passes the severe line")
        << 10 << Indices{1, 1, 1, 1, 1, 1, 5, 1, 1, 1, 1, 1} << Indices{6, 11} << Indices{};
    QTest::newRow("odd maxLines: half rounds down")
        << 5 << Indices{1, 1, 1, 1, 5, 1, 1} << Indices{4, 6} << Indices{};
    // Line 0 is passed with 9 lines left; line 7 stops the walk with 3 < 8 / 2.
    QTest::newRow("severe lines passed early stay")
        << 8 << Indices{5, 1, 1, 1, 1, 1, 1, 5, 1, 1} << Indices{0, 7, 8, 9} << Indices{};
    QTest::newRow("after maxLines errors: no eviction, ordinary dropped")
        << 3 << Indices{1, 5, 5, 5, 4, 5, 0, 6, 1} << Indices{0, 1, 2, 3, 5, 7}
        << Indices{4, 6, 8};
    QTest::newRow("level 6 kept, never evicted, not counted")
        << 2 << Indices{6, 6, 6, 1, 1} << Indices{0, 1, 2, 4} << Indices{};
    QTest::newRow("maxLines 0 keeps only severe lines")
        << 0 << Indices{1, 5, 4, 6, 0, 5} << Indices{1, 3, 5} << Indices{0, 2, 4};
}

void TestLogCollector::eviction()
{
    QFETCH(int, maxLines);
    QFETCH(Indices, levels);
    QFETCH(Indices, kept);
    QFETCH(Indices, dropped);

    UpdaterLogCollector collector(maxLines);
    QSignalSpy spy(&collector, &UpdaterLogCollector::newLog);
    QList<QVariantList> signalled;
    for (int i = 0; i < levels.size(); ++i) {
        const QString text = QStringLiteral("m%1").arg(i);
        collector.write(text, QStringLiteral("tests/file"), QStringLiteral("f"), QString(), 1,
                        Logger::Level(levels.at(i)), QDateTime(), 1);
        if (!dropped.contains(i))
            signalled << QVariantList{levels.at(i), text};
    }

    QList<QVariantList> lines;
    for (const UpdaterLogCollector::Line& line : collector.lines())
        lines << QVariantList{line.level, line.text};
    QList<QVariantList> expected;
    for (int i : kept)
        expected << QVariantList{levels.at(i), QStringLiteral("m%1").arg(i)};
    QCOMPARE(lines, expected);
    QCOMPARE(QList<QVariantList>(spy), signalled);
}

namespace {

// Whether each thread's records ("a<n>", "b<n>") come in their order; counts them in `counts`.
bool inOrderPerThread(const std::list<UpdaterLogCollector::Line>& lines, QHash<QChar, int>* counts)
{
    QHash<QChar, int> previous{{u'a', -1}, {u'b', -1}};
    for (const UpdaterLogCollector::Line& line : lines) {
        const int number = line.text.mid(1).toInt();
        if (number <= previous.value(line.text.at(0)))
            return false;
        previous[line.text.at(0)] = number;
        ++(*counts)[line.text.at(0)];
    }
    return true;
}

} // namespace

void TestLogCollector::throughLogger()
{
    // Two threads log into a collector that keeps everything and into a small one that evicts
    // all the time, which this thread keeps reading meanwhile.
    constexpr int PerThread = 20000;
    constexpr int MaxLines = 64;
    UpdaterLogCollector complete(2 * PerThread);
    UpdaterLogCollector capped(MaxLines);
    int received = 0;
    bool receivedHere = true;
    QObject receiver;
    connect(&complete, &UpdaterLogCollector::newLog, &receiver, [&](int, const QString&) {
        ++received;
        receivedHere = receivedHere && QThread::currentThread() == thread();
    });
    Logger::instance()->addOutput(&complete);
    Logger::instance()->addOutput(&capped);

    const auto logging = [](const QString& prefix) {
        return QThread::create([prefix] {
            for (int i = 0; i < PerThread; ++i)
                Logger::instance()->log(prefix + QString::number(i), QStringLiteral("tests/x"),
                                        QStringLiteral("run"), 1, i % 4);
        });
    };
    const std::unique_ptr<QThread> first(logging(QStringLiteral("a")));
    const std::unique_ptr<QThread> second(logging(QStringLiteral("b")));
    first->start();
    second->start();
    bool ordered = true;
    std::size_t largest = 0;
    do {
        const std::list<UpdaterLogCollector::Line> lines = capped.lines();
        largest = std::max(largest, lines.size());
        QHash<QChar, int> counts;
        ordered = ordered && inOrderPerThread(lines, &counts);
    } while (!first->isFinished() || !second->isFinished());
    QVERIFY(first->wait() && second->wait());
    Logger::instance()->flush();
    Logger::instance()->removeOutput(&capped);
    Logger::instance()->removeOutput(&complete);

    QVERIFY(ordered);
    QCOMPARE_LE(largest, std::size_t(MaxLines + 1));
    QHash<QChar, int> counts;
    QVERIFY(inOrderPerThread(complete.lines(), &counts));
    QCOMPARE(counts.value(u'a'), PerThread);
    QCOMPARE(counts.value(u'b'), PerThread);
    // The last record written is the last one of whichever thread finished later.
    const QString last = capped.lines().back().text;
    QVERIFY2(last.mid(1) == QString::number(PerThread - 1), qPrintable(last));
    // newLog comes from the output thread and is queued to the receiver's thread.
    QTRY_COMPARE(received, 2 * PerThread);
    QVERIFY(receivedHere);
}

QTEST_GUILESS_MAIN(TestLogCollector)
#include "tst_logcollector.moc"
