#include <basix/StringUtils.h>
#include <basix/VariantUtils.h>

#include <QtTest/QtTest>

class TestValues : public QObject
{
    Q_OBJECT

private slots:
    void stringReplace()
    {
        const QHash<QString, QString> hash{{"dir", "/opt/game"}, {"name", "Spiel"}, {"loop", "%(dir)"}, {"", "E"}};
        const std::pair<const char*, const char*> rows[] = {{"%(dir)/bin/%(name)%(name)", "/opt/game/bin/SpielSpiel"},
            {"%(dir)/%(unknown)/%(Name)", "/opt/game/%(unknown)/%(Name)"}, {"%(dir)/%(name", "/opt/game/%(name"},
            {"<%(loop)>", "<%(dir)>"}, {"[%()]", "[E]"}, {"%(x%(name))", "%(xSpiel)"}, {"100% (a) %", "100% (a) %"}};
        for (const auto& [text, expected] : rows)
            QCOMPARE(tvl::tv_string_replace(text, hash), QString::fromUtf8(expected));
    }

    void isNull()
    {
        const QVariant nulls[] = {QVariant(), QString(), QByteArray(), QChar(), QUrl(), QDate(), QTime(), QDateTime(),
                                  QUuid(), QJsonValue(), QVariant::fromValue<QObject*>(nullptr)};
        for (const QVariant& value : nulls)
            QVERIFY2(tvl::isNull(value), value.typeName());
        const QVariant values[] = {QString(""), QByteArray(""), QUrl("file:///tmp"), QTime(0, 0), 0, false,
                                   QStringList(), QVariant::fromValue<QObject*>(this)};
        for (const QVariant& value : values)
            QVERIFY2(!tvl::isNull(value), value.typeName());
    }
};

QTEST_GUILESS_MAIN(TestValues)
#include "tst_values.moc"
