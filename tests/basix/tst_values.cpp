#include <basix/StringUtils.h>
#include <basix/VantorTypes.h>
#include <basix/VariantUtils.h>

#include <QtTest/QtTest>

using tvl::vantor::Progress;
using tvl::vantor::UpdateResult;
using tvl::vantor::UpdateResultPtr;

using StringHash = QHash<QString, QString>;

namespace {

/// Emits what it is given; its connections decide how the values travel.
class Emitter : public QObject
{
    Q_OBJECT

signals:
    void progress(const tvl::vantor::Progress& progress);
    void finished(const tvl::vantor::UpdateResultPtr& result);
};

} // namespace

class TestValues : public QObject
{
    Q_OBJECT

private slots:
    void stringReplace_data();
    void stringReplace();
    void isNull_data();
    void isNull();
    void progressFraction_data();
    void progressFraction();
    void metaTypeNames();
    void queuedConnection();
};

void TestValues::stringReplace_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<StringHash>("hash");
    QTest::addColumn<QString>("expected");

    const auto s = [](const char* text) { return QString::fromUtf8(text); };
    const StringHash paths {{s("dir"), s("/opt/game")}, {s("name"), s("Spiel")}, {s("ext"), s(".exe")},
                            {s("loop"), s("%(dir)")}, {s(""), s("EMPTY")}, {s("a %(b"), s("odd")}};

    QTest::newRow("no placeholder") << s("plain text") << paths << s("plain text");
    QTest::newRow("one") << s("cd %(dir)") << paths << s("cd /opt/game");
    QTest::newRow("several") << s("%(dir)/bin/%(name) --%(name)") << paths << s("/opt/game/bin/Spiel --Spiel");
    QTest::newRow("adjacent") << s("%(name)%(ext)") << paths << s("Spiel.exe");
    QTest::newRow("whole text") << s("%(name)") << paths << s("Spiel");
    QTest::newRow("unknown key kept") << s("%(dir)/%(unknown)/x") << paths << s("/opt/game/%(unknown)/x");
    QTest::newRow("keys are case-sensitive") << s("%(Name)") << paths << s("%(Name)");
    QTest::newRow("unclosed") << s("%(dir)/%(name") << paths << s("/opt/game/%(name");
    QTest::newRow("replacement not searched again") << s("<%(loop)>") << paths << s("<%(dir)>");
    QTest::newRow("empty key") << s("[%()]") << paths << s("[EMPTY]");
    QTest::newRow("empty key unknown") << s("[%()]") << StringHash {{s("x"), s("y")}} << s("[%()]");
    QTest::newRow("unknown key around a known one") << s("%(x%(name))") << paths << s("%(xSpiel)");
    QTest::newRow("key with an opening") << s("%(a %(b)") << paths << s("odd");
    QTest::newRow("lone percent and parenthesis") << s("100% (sure) %") << paths << s("100% (sure) %");
    QTest::newRow("empty hash") << s("%(dir)") << StringHash {} << s("%(dir)");
    QTest::newRow("empty text") << QString() << paths << QString();
    QTest::newRow("replaced by nothing") << s("a%(none)b") << StringHash {{s("none"), QString()}} << s("ab");
    QTest::newRow("non-latin") << s("→%(name)←") << paths << s("→Spiel←");
}

void TestValues::stringReplace()
{
    QFETCH(QString, text);
    QFETCH(StringHash, hash);
    QFETCH(QString, expected);

    QCOMPARE(tvl::tv_string_replace(text, hash), expected);
}

void TestValues::isNull_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("null");

    QTest::newRow("invalid") << QVariant() << true;
    QTest::newRow("null string") << QVariant(QString()) << true;
    QTest::newRow("empty string") << QVariant(QStringLiteral("")) << false;
    QTest::newRow("null byte array") << QVariant(QByteArray()) << true;
    QTest::newRow("empty byte array") << QVariant(QByteArray("")) << false;
    QTest::newRow("null char") << QVariant(QChar()) << true;
    QTest::newRow("empty url") << QVariant(QUrl()) << true;
    QTest::newRow("url") << QVariant(QUrl(QStringLiteral("file:///tmp"))) << false;
    QTest::newRow("null date") << QVariant(QDate()) << true;
    QTest::newRow("date") << QVariant(QDate(2024, 2, 29)) << false;
    QTest::newRow("null time") << QVariant(QTime()) << true;
    QTest::newRow("midnight") << QVariant(QTime(0, 0)) << false;
    QTest::newRow("null date-time") << QVariant(QDateTime()) << true;
    QTest::newRow("epoch") << QVariant(QDateTime::fromSecsSinceEpoch(0, Qt::UTC)) << false;
    QTest::newRow("null uuid") << QVariant(QUuid()) << true;
    QTest::newRow("json null") << QVariant(QJsonValue()) << true;
    QTest::newRow("null object pointer") << QVariant::fromValue<QObject*>(nullptr) << true;
    QTest::newRow("object pointer") << QVariant::fromValue<QObject*>(this) << false;
    QTest::newRow("nullptr") << QVariant::fromValue(nullptr) << true;
    QTest::newRow("zero") << QVariant(0) << false;
    QTest::newRow("false") << QVariant(false) << false;
    QTest::newRow("empty list") << QVariant(QStringList()) << false;
}

void TestValues::isNull()
{
    QFETCH(QVariant, value);
    QFETCH(bool, null);

    QCOMPARE(tvl::isNull(value), null);
}

void TestValues::progressFraction_data()
{
    QTest::addColumn<qint64>("done");
    QTest::addColumn<qint64>("total");
    QTest::addColumn<double>("fraction");

    QTest::newRow("unknown total") << qint64(500) << qint64(0) << 0.0;
    QTest::newRow("negative total") << qint64(500) << qint64(-1) << 0.0;
    QTest::newRow("nothing yet") << qint64(0) << qint64(1000) << 0.0;
    QTest::newRow("a quarter") << qint64(250) << qint64(1000) << 0.25;
    QTest::newRow("done") << qint64(1000) << qint64(1000) << 1.0;
    QTest::newRow("past the total") << qint64(1500) << qint64(1000) << 1.0;
    QTest::newRow("negative done") << qint64(-10) << qint64(1000) << 0.0;
}

void TestValues::progressFraction()
{
    QFETCH(qint64, done);
    QFETCH(qint64, total);
    QFETCH(double, fraction);

    Progress progress;
    progress.bytesDone = done;
    progress.bytesTotal = total;
    QCOMPARE(progress.fraction(), fraction);
}

void TestValues::metaTypeNames()
{
    tvl::vantor::registerMetaTypes();
    const QMetaType progress = QMetaType::fromName("tvl::vantor::Progress");
    const QMetaType result = QMetaType::fromName("tvl::vantor::UpdateResultPtr");
    QVERIFY(progress.isValid());
    QVERIFY(result.isValid());
    QCOMPARE(progress, QMetaType::fromType<Progress>());
    QCOMPARE(result, QMetaType::fromType<UpdateResultPtr>());

    tvl::vantor::registerMetaTypes();
    QCOMPARE(QMetaType::fromName("tvl::vantor::Progress"), progress);
    QCOMPARE(QMetaType::fromName("tvl::vantor::UpdateResultPtr"), result);

    // A value made from the name alone is the real thing.
    const QVariant made(result);
    QCOMPARE(made.metaType(), QMetaType::fromType<UpdateResultPtr>());
    QVERIFY(made.value<UpdateResultPtr>().isNull());
}

void TestValues::queuedConnection()
{
    tvl::vantor::registerMetaTypes();

    Progress sent;
    sent.project = QStringLiteral("game");
    sent.stage = Progress::Downloading;
    sent.bytesDone = 10;
    sent.bytesTotal = 40;
    sent.bytesPerSecond = 2.5;
    sent.secondsLeft = 12;
    auto result = UpdateResultPtr::create();
    result->updatedFiles = {QStringLiteral("bin/game")};

    Emitter emitter;
    QList<Progress> progresses;
    QList<UpdateResultPtr> results;
    connect(&emitter, &Emitter::progress, this, [&](const Progress& p) { progresses.append(p); },
            Qt::QueuedConnection);
    connect(&emitter, &Emitter::finished, this, [&](const UpdateResultPtr& r) { results.append(r); },
            Qt::QueuedConnection);

    emit emitter.progress(sent);
    emit emitter.finished(result);
    sent.bytesDone = 20; // the queued copy was taken at the emission
    QVERIFY(progresses.isEmpty());
    QTRY_COMPARE(results.size(), 1);

    QCOMPARE(progresses.size(), 1);
    QCOMPARE(progresses.first().bytesDone, 10);
    QCOMPARE(progresses.first().project, QStringLiteral("game"));
    QCOMPARE(progresses.first().bytesPerSecond, 2.5);
    QCOMPARE(results.first(), result); // the same shared object, not a copy of it
}

QTEST_GUILESS_MAIN(TestValues)
#include "tst_values.moc"
