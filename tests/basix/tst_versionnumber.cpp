#include <basix/VersionNumber.h>

#include <QtTest/QtTest>

using tvl::VersionNumber;

static int sign(qsizetype value) { return (value > 0) - (value < 0); }

class TestVersionNumber : public QObject
{
    Q_OBJECT

private slots:
    void ordering_data()
    {
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<int>("order"); // sign of compare(a, b)
        const std::tuple<const char*, const char*, int> rows[] = {
            {"1.9", "1.10", -1}, {"1.2", "1.2.0.0", 0}, {"1.2.0.1", "1.2", 1}, {"v1.2", " 1.2 ", 0},
            {"1.2-rc1", "1.2", -1}, {"1.2rc1", "1.2_rc1", 0}, {"1.2-rc1", "1.1", 1},
            {"1.2-beta2", "1.2-beta10", -1}, {"1.2-alpha", "1.2-beta", -1}, {"1.2-BETA", "1.2-beta", 0},
            {"1.2-beta", "1.2-beta2", -1}, {"1.2-beta.2", "1.2+beta2", 0}, {"1.2-beta007", "1.2-beta7", 0},
            {"1.2-rc99999999999999999999", "1.2-rc100000000000000000000", -1}, {"1.2-1", "1.2-alpha", -1},
            {"latest", "0.0.1", -1}, {"", "", 0}, {"vnext", "nightly10", 1}, {"nightly2", "Nightly10", -1}};
        for (const auto& [a, b, order] : rows)
            QTest::addRow("%s vs %s", a, b) << QString::fromUtf8(a) << QString::fromUtf8(b) << order;
    }

    void ordering()
    {
        QFETCH(QString, a);
        QFETCH(QString, b);
        QTEST(sign(VersionNumber::compare(VersionNumber(a), VersionNumber(b))), "order");
        QTEST(-sign(VersionNumber::compare(VersionNumber(b), VersionNumber(a))), "order");
    }

    // Every pair of a hand-sorted list compares as its positions do (equal versions share one).
    void sortedList()
    {
        const QList<QStringList> sorted{{"", " "}, {"garbage"}, {"nightly"}, {"0.9"}, {"1.0-alpha", "1.0.0-ALPHA"},
            {"1.0-alpha.2"}, {"1.0-beta2", "v1.0beta2"}, {"1.0-beta10"}, {"1.0-rc1"}, {"1.0", "v1", "1.0.0"},
            {"1.0.1-rc1"}, {"1.0.1"}, {"1.2"}, {"1.10"}, {"10.0-pre"}, {"10.0"}};
        for (qsizetype i = 0; i < sorted.size(); ++i)
            for (qsizetype j = 0; j < sorted.size(); ++j)
                for (const QString& a : sorted.at(i))
                    for (const QString& b : sorted.at(j))
                        QVERIFY2(sign(VersionNumber::compare(VersionNumber(a), VersionNumber(b))) == sign(i - j), qPrintable(a + '|' + b));
    }
};

QTEST_GUILESS_MAIN(TestVersionNumber)
#include "tst_versionnumber.moc"
