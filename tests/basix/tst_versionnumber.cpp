#include <basix/VersionNumber.h>

#include <QtTest/QtTest>

using tvl::VersionNumber;

class TestVersionNumber : public QObject
{
    Q_OBJECT

private slots:
    void parsing_data();
    void parsing();
    void ordering_data();
    void ordering();
    void totalOrder();
};

void TestVersionNumber::parsing_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QList<int>>("numbers"); // empty for a null version
    QTest::addColumn<QString>("suffix");

    const auto s = [](const char* text) { return QString::fromUtf8(text); };
    QTest::newRow("plain") << s("3.11.1") << QList<int> {3, 11, 1} << QString();
    QTest::newRow("v prefix") << s("v2.0") << QList<int> {2, 0} << QString();
    QTest::newRow("V prefix") << s("V2.0") << QList<int> {2, 0} << QString();
    QTest::newRow("dash suffix") << s("1.4.0-beta2") << QList<int> {1, 4, 0} << s("beta2");
    QTest::newRow("glued suffix") << s("1.4rc1") << QList<int> {1, 4} << s("rc1");
    QTest::newRow("plus suffix") << s("1.0+build.7") << QList<int> {1, 0} << s("build.7");
    QTest::newRow("dot suffix") << s("1.2.3.beta") << QList<int> {1, 2, 3} << s("beta");
    QTest::newRow("underscore suffix") << s("2_rc") << QList<int> {2} << s("rc");
    QTest::newRow("only one separator is dropped") << s("1.0--x") << QList<int> {1, 0} << s("-x");
    QTest::newRow("lone separator") << s("1.0-") << QList<int> {1, 0} << QString();
    QTest::newRow("surrounding blanks") << s(" 1.2 ") << QList<int> {1, 2} << QString();
    QTest::newRow("words") << s("latest") << QList<int> {} << s("latest");
    QTest::newRow("v without numbers") << s("v") << QList<int> {} << s("v");
    QTest::newRow("v before a word") << s("vnext") << QList<int> {} << s("vnext");
    QTest::newRow("empty") << QString() << QList<int> {} << QString();
    QTest::newRow("leading dot") << s(".5") << QList<int> {} << s(".5");
}

void TestVersionNumber::parsing()
{
    QFETCH(QString, text);
    QFETCH(QList<int>, numbers);
    QFETCH(QString, suffix);

    const VersionNumber version(text);
    QCOMPARE(version.toString(), text);
    QCOMPARE(version.isNull(), numbers.isEmpty());
    QCOMPARE(version.numbers(), QVersionNumber(numbers));
    QCOMPARE(version.suffix(), suffix);
}

void TestVersionNumber::ordering_data()
{
    QTest::addColumn<QString>("a");
    QTest::addColumn<QString>("b");
    QTest::addColumn<int>("order"); // sign of compare(a, b)

    const auto row = [](const char* a, const char* b, int order) {
        QTest::addRow("%s vs %s", a, b) << QString::fromUtf8(a) << QString::fromUtf8(b) << order;
    };
    row("1.2", "1.10", -1);
    row("1.9", "1.10", -1);
    row("1.2", "1.2.0", 0);
    row("1.2", "1.2.0.0", 0);
    row("1.2.0.1", "1.2", 1);
    row("2", "1.99.99", 1);
    row("v1.2", "1.2", 0);
    row("v1.3", "1.2", 1);
    row("1.2-rc1", "1.2", -1);
    row("1.2rc1", "1.2-rc1", 0);
    row("1.2-rc1", "1.1", 1);
    row("1.2.0-rc1", "1.2", -1);
    row("1.2-beta2", "1.2-beta10", -1);
    row("1.2-alpha", "1.2-beta", -1);
    row("1.2-beta", "1.2-rc", -1);
    row("1.2-BETA", "1.2-beta", 0);
    row("1.2-Beta3", "1.2-beta2", 1);
    row("1.2-beta", "1.2-beta2", -1);
    row("1.2-beta.2", "1.2-beta2", 0);
    row("1.2-beta007", "1.2-beta7", 0);
    row("1.2-rc99999999999999999999", "1.2-rc100000000000000000000", -1);
    row("1.2-1", "1.2-alpha", -1);
    row("latest", "0.0.1", -1);
    row("", "0", -1);
    row("", "", 0);
    row("alpha", "beta", -1);
    row("nightly2", "nightly10", -1);
    row("Nightly", "nightly", 0);
}

void TestVersionNumber::ordering()
{
    QFETCH(QString, a);
    QFETCH(QString, b);
    QFETCH(int, order);

    const VersionNumber va(a);
    const VersionNumber vb(b);
    const auto sign = [](int value) { return (value > 0) - (value < 0); };
    QCOMPARE(sign(VersionNumber::compare(va, vb)), order);
    QCOMPARE(sign(VersionNumber::compare(vb, va)), -order);
    QCOMPARE(va == vb, order == 0);
    QCOMPARE(va != vb, order != 0);
    QCOMPARE(va < vb, order < 0);
    QCOMPARE(va <= vb, order <= 0);
    QCOMPARE(va > vb, order > 0);
    QCOMPARE(va >= vb, order >= 0);
}

void TestVersionNumber::totalOrder()
{
    // Sorted by hand, ascending; versions within one inner list are equal.
    const QList<QStringList> sorted {
        {QStringLiteral("")},
        {QStringLiteral("garbage")},
        {QStringLiteral("nightly")},
        {QStringLiteral("0.9")},
        {QStringLiteral("1.0-alpha"), QStringLiteral("1.0.0-ALPHA")},
        {QStringLiteral("1.0-alpha.2")},
        {QStringLiteral("1.0-beta2"), QStringLiteral("v1.0beta2")},
        {QStringLiteral("1.0-beta10")},
        {QStringLiteral("1.0-rc1")},
        {QStringLiteral("1.0"), QStringLiteral("v1"), QStringLiteral("1.0.0")},
        {QStringLiteral("1.0.1-rc1")},
        {QStringLiteral("1.0.1")},
        {QStringLiteral("1.2")},
        {QStringLiteral("1.10")},
        {QStringLiteral("10.0-pre")},
        {QStringLiteral("10.0")},
    };

    for (qsizetype i = 0; i < sorted.size(); ++i) {
        for (qsizetype j = 0; j < sorted.size(); ++j) {
            for (const QString& a : sorted.at(i)) {
                for (const QString& b : sorted.at(j)) {
                    const int expected = (i > j) - (i < j);
                    const int actual = VersionNumber::compare(VersionNumber(a), VersionNumber(b));
                    if ((actual > 0) - (actual < 0) != expected)
                        QFAIL(qPrintable(QStringLiteral("compare(%1, %2) = %3").arg(a, b).arg(actual)));
                }
            }
        }
    }

    QList<VersionNumber> shuffled;
    for (auto it = sorted.crbegin(); it != sorted.crend(); ++it)
        shuffled.append(VersionNumber(it->first()));
    std::sort(shuffled.begin(), shuffled.end());
    for (qsizetype i = 0; i < sorted.size(); ++i)
        QCOMPARE(shuffled.at(i).toString(), sorted.at(i).first());
}

QTEST_GUILESS_MAIN(TestVersionNumber)
#include "tst_versionnumber.moc"
