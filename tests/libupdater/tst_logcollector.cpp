#include <libupdater/UpdaterLogCollector.h>

#include <basix/Logger.h>

#include <QtTest/QtTest>

using tvl::Logger;
using tvl::updater::UpdaterLogCollector;

class TestLogCollector : public QObject
{
    Q_OBJECT

private slots:
    void eviction_data()
    {
        // Record i has the level levels[i] and ends up as fates[i] says: "k" kept, "-" signalled
        // but evicted, "x" never added (nor signalled).
        QTest::addColumn<int>("maxLines");
        QTest::addColumn<QString>("levels");
        QTest::addColumn<QString>("fates");
        QTest::newRow("maxLines + 1 before a write trims") << 4 << "11111" << "kkkkk";
        QTest::newRow("levels 0-4 are ordinary") << 4 << "140321" << "-----k";
        QTest::newRow("stops at a severe line below half") << 10 << "111111151111" << "-------kkkkk";
        QTest::newRow("exactly half: passes the severe line") << 10 << "111111511111" << "------k----k";
        QTest::newRow("severe lines passed early stay") << 8 << "5111111511" << "k------kkk";
        QTest::newRow("after maxLines errors: no eviction, only severe") << 3 << "155545061" << "kkkkxkxkx";
        QTest::newRow("level 6 never evicted, not counted") << 2 << "66611" << "kkk-k";
    }

    void eviction()
    {
        QFETCH(int, maxLines);
        QFETCH(QString, levels);
        QFETCH(QString, fates);
        UpdaterLogCollector collector(maxLines);
        QString seen(levels.size(), QLatin1Char('x'));
        connect(&collector, &UpdaterLogCollector::newLog, this, [&seen](int, const QString& text) { seen[text.toInt()] = '-'; });
        for (int i = 0; i < levels.size(); ++i)
            collector.write(QString::number(i), {}, {}, {}, 1, Logger::Level(levels[i].digitValue()), {}, 1);
        for (const UpdaterLogCollector::Line& line : collector.lines()) // "?": kept with another level
            seen[line.text.toInt()] = line.level == levels[line.text.toInt()].digitValue() ? 'k' : '?';
        QCOMPARE(seen, fates);
    }

    void throughLogger()
    {
        // Written on the logger's thread, newLog is queued to the receiver's thread, in order.
        UpdaterLogCollector collector(64);
        QStringList received, expected;
        QObject receiver;
        connect(&collector, &UpdaterLogCollector::newLog, &receiver, [&](int level, const QString& text) {
            received << QString::number(level) + ' ' + text + (QThread::currentThread() == thread() ? "" : " elsewhere");
        });
        Logger::instance()->addOutput(&collector);
        for (int i = 0; i < 1000; ++i) {
            Logger::instance()->log(QString::number(i), QStringLiteral("tests/x"), QStringLiteral("run"), 1, i % 4);
            expected << QString::number(i % 4) + ' ' + QString::number(i);
        }
        Logger::instance()->removeOutput(&collector); // once everything is written
        QCOMPARE(collector.lines().back().text, QStringLiteral("999"));
        QTRY_COMPARE(received, expected);
    }
};

QTEST_GUILESS_MAIN(TestLogCollector)
#include "tst_logcollector.moc"
