#include <libupdater/UpdaterError.h>

#include <QtCore/QMetaEnum>
#include <QtTest/QTest>

using tvl::updater::IUpdaterErrorPrivate;
using tvl::updater::UpdaterError;

namespace {

/// Content with details, counting live instances to show when the last copy lets go.
class DetailedError : public IUpdaterErrorPrivate
{
public:
    explicit DetailedError(int* alive)
        : m_alive(alive)
    {
        ++*m_alive;
    }
    ~DetailedError() override { --*m_alive; }

    QString text() const override { return QStringLiteral("disk full"); }
    QString html() const override { return QStringLiteral("<b>disk full</b>"); }
    quint32 errorCode() const override { return 0x03080012; }
    QString details() const override { return QStringLiteral("/games: 0 bytes free"); }

private:
    int* m_alive;
};

} // namespace

class TestUpdaterError : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void codes_data();
    void codes();
    void texts_data();
    void texts();
    void nullError();
    void reclassify_data();
    void reclassify();
    void copiesShareCustomContent();
    void categoriesByName();
    void travelsInVariant();
};

void TestUpdaterError::codes_data()
{
    QTest::addColumn<int>("given");
    QTest::addColumn<quint32>("stored");
    QTest::addColumn<quint32>("level");
    QTest::addColumn<quint32>("category");
    QTest::addColumn<quint32>("type");
    QTest::addColumn<QString>("id");

    QTest::newRow("no level") << 0x00020005 << 0x04020005u << 0x04000000u << 0x00020000u << 0x0005u
                              << QStringLiteral("U04020005");
    QTest::newRow("own level") << 0x01020005 << 0x01020005u << 0x01000000u << 0x00020000u << 0x0005u
                               << QStringLiteral("U01020005");
    QTest::newRow("no category") << 5 << 0x04000005u << 0x04000000u << 0u << 0x0005u
                                 << QStringLiteral("U04000005");
    QTest::newRow("zero") << 0 << 0x04000000u << 0x04000000u << 0u << 0u << QStringLiteral("U04000000");
    QTest::newRow("combined categories") << 0x0F0C00AB << 0x0F0C00ABu << 0x0F000000u << 0x000C0000u
                                         << 0x00ABu << QStringLiteral("U0F0C00AB");
    // Bits 28-31 count for no field, but they are part of the code and of the id.
    QTest::newRow("high bits without level") << int(0x80010001) << 0x84010001u << 0x04000000u
                                             << 0x00010000u << 0x0001u << QStringLiteral("U84010001");
}

void TestUpdaterError::codes()
{
    QFETCH(int, given);
    QFETCH(quint32, stored);

    const UpdaterError error(given, QStringLiteral("t"), QStringLiteral("h"));
    QCOMPARE(error.errorCode(), stored);
    QTEST(error.level(), "level");
    QTEST(error.category(), "category");
    QTEST(error.type(), "type");
    QTEST(error.errorId(), "id");

    UpdaterError reclassified = error;
    reclassified.reclassify(0x02040000);
    QCOMPARE(reclassified.errorCode(), (stored & 0xFFFFu) | 0x02040000u);
    QTEST(reclassified.type(), "type");
}

void TestUpdaterError::texts_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("html");
    QTest::addColumn<QString>("expectedText");
    QTest::addColumn<QString>("expectedHtml");
    QTest::addColumn<bool>("isNull");

    QTest::newRow("both") << QStringLiteral("a") << QStringLiteral("<b>a</b>") << QStringLiteral("a")
                          << QStringLiteral("<b>a</b>") << false;
    QTest::newRow("text only") << QStringLiteral("a") << QString() << QStringLiteral("a") << QStringLiteral("a")
                               << false;
    QTest::newRow("html only") << QString() << QStringLiteral("b") << QStringLiteral("b") << QStringLiteral("b")
                               << false;
    // Text falls back only on null, html already on empty.
    QTest::newRow("empty text") << QStringLiteral("") << QStringLiteral("b") << QStringLiteral("")
                                << QStringLiteral("b") << false;
    QTest::newRow("empty html") << QStringLiteral("a") << QStringLiteral("") << QStringLiteral("a")
                                << QStringLiteral("a") << false;
    QTest::newRow("both empty") << QStringLiteral("") << QStringLiteral("") << QStringLiteral("")
                                << QStringLiteral("") << true;
    QTest::newRow("both null") << QString() << QString() << QString() << QString() << true;
}

void TestUpdaterError::texts()
{
    QFETCH(QString, text);
    QFETCH(QString, html);
    QFETCH(QString, expectedText);

    const UpdaterError errors[] = {UpdaterError(text, html), UpdaterError(0x00080001, text, html)};
    for (const UpdaterError& error : errors) {
        QCOMPARE(error.text(), expectedText);
        QCOMPARE(error.text().isNull(), expectedText.isNull());
        QTEST(error.html(), "expectedHtml");
        QTEST(error.isNull(), "isNull");
        QVERIFY(error.details().isNull());
    }
    QCOMPARE(errors[0].errorCode(), 0x04010400u);
    QCOMPARE(errors[0].errorId(), QStringLiteral("U04010400"));
}

void TestUpdaterError::nullError()
{
    const UpdaterError error;
    QVERIFY(error.isNull());
    QVERIFY(error.text().isNull());
    QVERIFY(error.html().isNull());
    QVERIFY(error.details().isNull());
    QCOMPARE(error.errorCode(), 0u);
    QCOMPARE(error.level(), 0u);
    QCOMPARE(error.errorId(), QStringLiteral("U00000000"));
}

void TestUpdaterError::reclassify_data()
{
    QTest::addColumn<uint>("word");
    QTest::addColumn<quint32>("code");
    QTest::addColumn<quint32>("level");
    QTest::addColumn<quint32>("category");
    QTest::addColumn<QString>("id");

    QTest::newRow("level and category") << 0x02040000u << 0x02040400u << 0x02000000u << 0x00040000u
                                        << QStringLiteral("U02040400");
    QTest::newRow("category only") << 0x00080000u << 0x00080400u << 0u << 0x00080000u << QStringLiteral("U00080400");
    QTest::newRow("stray low bit") << 0x00000001u << 0x00000401u << 0u << 0u << QStringLiteral("U00000401");
    QTest::newRow("undone") << 0u << 0x04010400u << 0x04000000u << 0x00010000u << QStringLiteral("U04010400");
}

void TestUpdaterError::reclassify()
{
    QFETCH(uint, word);

    UpdaterError error(QStringLiteral("t"), QString());
    error.reclassify(0x03020000);
    error.reclassify(word);
    QTEST(error.errorCode(), "code");
    QTEST(error.level(), "level");
    QTEST(error.category(), "category");
    QTEST(error.errorId(), "id");
    QCOMPARE(error.type(), 0x0400u);
}

void TestUpdaterError::copiesShareCustomContent()
{
    int alive = 0;
    UpdaterError original(new DetailedError(&alive));
    QCOMPARE(original.html(), QStringLiteral("<b>disk full</b>"));
    QCOMPARE(original.details(), QStringLiteral("/games: 0 bytes free"));
    QCOMPARE(original.category(), quint32(UpdaterError::InstallerErrorCategory));
    QCOMPARE(original.errorId(), QStringLiteral("U03080012"));
    {
        UpdaterError copy = original;
        UpdaterError assigned;
        assigned = copy;
        QCOMPARE(alive, 1);

        copy.reclassify(UpdaterError::GameErrorCategory);
        QCOMPARE(copy.errorCode(), 0x00040012u);
        QCOMPARE(original.errorCode(), 0x03080012u);
        QCOMPARE(assigned.errorCode(), 0x03080012u);
        QCOMPARE(copy.details(), original.details());

        // Reclassifying must not have detached: still the one content object.
        QCOMPARE(alive, 1);
    }
    QCOMPARE(alive, 1);
    original = UpdaterError();
    QCOMPARE(alive, 0);
}

void TestUpdaterError::categoriesByName()
{
    const QMetaObject& mo = UpdaterError::staticMetaObject;
    QCOMPARE(mo.className(), "tvl::updater::UpdaterError");
    QCOMPARE(mo.enumeratorCount() - mo.enumeratorOffset(), 1);
    QCOMPARE(mo.methodCount(), 0);
    QCOMPARE(mo.propertyCount(), 0);

    const QMetaEnum categories = mo.enumerator(mo.indexOfEnumerator("ErrorCategoryE"));
    QVERIFY(categories.isValid());
    QVERIFY(!categories.isFlag());
    const QList<QPair<const char*, int>> expected = {
        {"UnknownErrorCategory", 0x00010000},
        {"UpdateErrorCategory", 0x00020000},
        {"GameErrorCategory", 0x00040000},
        {"InstallerErrorCategory", 0x00080000},
    };
    QCOMPARE(categories.keyCount(), int(expected.size()));
    for (const auto& [key, value] : expected)
        QCOMPARE(categories.keyToValue(key), value);
}

void TestUpdaterError::travelsInVariant()
{
    const int id = tvl::updater::registerUpdaterErrorMetaType();
    QCOMPARE(tvl::updater::registerUpdaterErrorMetaType(), id);
    QCOMPARE(QMetaType::fromName("tvl::updater::UpdaterError").id(), id);

    UpdaterError error(0x00020007, QStringLiteral("no space"), QString());
    error.reclassify(0x05040000);
    QCOMPARE(QVariant::fromValue(error).value<UpdaterError>().errorCode(), 0x05040007u);
}

QTEST_GUILESS_MAIN(TestUpdaterError)
#include "tst_updatererror.moc"
