#include <libupdater/UpdaterError.h>

#include <QtTest/QTest>

using tvl::updater::UpdaterError;

struct DetailedError : tvl::updater::IUpdaterErrorPrivate // a plugin's own content, counting its instances
{
    explicit DetailedError(int* alive) : alive(alive) { ++*alive; }
    ~DetailedError() override { --*alive; }
    QString text() const override { return QStringLiteral("disk full"); }
    QString html() const override { return QString(); }
    quint32 errorCode() const override { return 0x03080012; }
    QString details() const override { return QStringLiteral("/games: 0 bytes free"); }
    int* alive;
};

static QString codeFields(const UpdaterError& error)
{
    return error.errorId() + QString::asprintf(" %08X %08X %04X", error.level(), error.category(), error.type());
}

class TestUpdaterError : public QObject
{
    Q_OBJECT

private slots:
    void codes_data()
    {
        // codeFields() of UpdaterError(given, ...), then after reclassify(word): the word is stored as it is.
        QTest::addColumn<int>("given");
        QTest::addColumn<uint>("word");
        QTest::addColumn<QString>("fields");
        QTest::newRow("no level: the default") << 0x00020005 << 0x02040010u
                                               << "U04020005 04000000 00020000 0005 -> U02040015 02000000 00040000 0005";
        QTest::newRow("own level, two categories") << 0x010C00AB << 0x00080000u
                                                   << "U010C00AB 01000000 000C0000 00AB -> U000800AB 00000000 00080000 00AB";
        QTest::newRow("high bits: in no field") << int(0x80010001) << 0x02040000u
                                                << "U84010001 04000000 00010000 0001 -> U02040001 02000000 00040000 0001";
    }

    void codes()
    {
        QFETCH(int, given);
        QFETCH(uint, word);
        UpdaterError error(given, QStringLiteral("t"), QStringLiteral("h"));
        const UpdaterError copy = error;
        error.reclassify(word);
        QTEST(codeFields(copy) + " -> " + codeFields(error), "fields"); // the copy keeps its code
        error.reclassify(0);
        QCOMPARE(codeFields(error), codeFields(copy));
    }

    void texts()
    {
        // The text falls back to the html only when null, the html to the text already when empty.
        const auto texts = [](const QString& text, const QString& html) {
            const UpdaterError error(0x00080001, text, html);
            return error.text() + '|' + error.html() + (error.isNull() ? "|null " : " ") + (error.details().isNull() ? "" : "details ");
        };
        QCOMPARE(texts(QString(), "b") + texts("", "b") + texts("a", "") + texts("", ""), QStringLiteral("b|b |b a|a ||null "));
        QCOMPARE(codeFields(UpdaterError(QStringLiteral("a"), QString())), QStringLiteral("U04010400 04000000 00010000 0400"));
    }

    void customContentIsShared()
    {
        const int metaType = tvl::updater::registerUpdaterErrorMetaType();
        QCOMPARE(QMetaType::fromName("tvl::updater::UpdaterError").id(), metaType);
        int alive = 0;
        UpdaterError original(new DetailedError(&alive));
        UpdaterError copy = original;
        copy.reclassify(UpdaterError::GameErrorCategory);
        QCOMPARE(QVariant::fromValue(copy).value<UpdaterError>().errorId() + ' ' + original.errorId() + ' ' + copy.details(),
                 QStringLiteral("U00040012 U03080012 /games: 0 bytes free"));
        original = UpdaterError();
        QCOMPARE(alive, 1); // until the last copy lets go
        copy = original;
        QCOMPARE(alive, 0);
        QCOMPARE(codeFields(copy) + (copy.isNull() && copy.text().isNull() ? " null" : ""),
                 QStringLiteral("U00000000 00000000 00000000 0000 null"));
    }
};

QTEST_GUILESS_MAIN(TestUpdaterError)
#include "tst_updatererror.moc"
