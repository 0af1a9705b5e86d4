#include <libupdater/MemorySettingsProvider.h>

#include <QtTest/QtTest>

#include <utility>

using namespace tvl::updater;

namespace {

using Writes = QList<std::pair<QString, QVariant>>;

const QVariantList pair{QStringLiteral("x"), QStringLiteral("y")};

QVariantMap mapOf(std::initializer_list<std::pair<QString, QVariant>> entries)
{
    QVariantMap map;
    for (const auto& [key, value] : entries)
        map.insert(key, value);
    return map;
}

QString s(const char* text)
{
    return QString::fromUtf8(text);
}

// Same type and same value: QVariant's own == would take "1" for 1.
void compareExactly(const QVariant& actual, const QVariant& expected)
{
    QCOMPARE(actual.metaType(), expected.metaType());
    QCOMPARE(actual, expected);
}

} // namespace

Q_DECLARE_METATYPE(Writes)

class TestMemorySettings : public QObject
{
    Q_OBJECT

private slots:
    void paths_data();
    void paths();
    void clearKeepsEverything();

    void valueWithDefault_data();
    void valueWithDefault();
    void setValueConsumesPath();
    void setValueLeavesSharedCopies();
    void expandMap_data();
    void expandMap();
};

void TestMemorySettings::paths_data()
{
    QTest::addColumn<Writes>("writes");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("expected");
    QTest::addColumn<QStringList>("keys");

    const QVariant nothing;

    QTest::newRow("a.b.c creates the maps")
        << Writes{{s("a.b.c"), 1}} << s("a.b.c") << QVariant(1) << QStringList{s("a.b.c")};
    QTest::newRow("inner map reads as a map")
        << Writes{{s("a.b.c"), 1}} << s("a.b") << QVariant(mapOf({{s("c"), 1}}))
        << QStringList{s("a.b.c")};
    QTest::newRow("leaf replaced by a map")
        << Writes{{s("a"), 5}, {s("a.b"), 1}} << s("a") << QVariant(mapOf({{s("b"), 1}}))
        << QStringList{s("a.b")};
    QTest::newRow("map replaced by a leaf")
        << Writes{{s("a.b"), 1}, {s("a"), 5}} << s("a") << QVariant(5) << QStringList{s("a")};

    QTest::newRow("list index 1") << Writes{{s("list"), pair}} << s("list.1") << QVariant(s("y"))
                                  << QStringList{s("list")};
    QTest::newRow("index past the end, key beside the list")
        << Writes{{s("list"), pair}, {s("2"), s("beside")}} << s("list.2") << QVariant(s("beside"))
        << QStringList{s("2"), s("list")};
    QTest::newRow("index past the end, nothing beside")
        << Writes{{s("list"), pair}} << s("list.2") << nothing << QStringList{s("list")};
    QTest::newRow("name after a list, key beside it")
        << Writes{{s("a"), QVariantList{1, 2}}, {s("x"), 5}} << s("a.x") << QVariant(5)
        << QStringList{s("a"), s("x")};
    QTest::newRow("below a list element") << Writes{{s("list"), pair}, {s("z"), 1}} << s("list.1.z")
                                          << nothing << QStringList{s("list"), s("z")};
    QTest::newRow("negative index")
        << Writes{{s("list"), pair}} << s("list.-1") << nothing << QStringList{s("list")};
    QTest::newRow("negative index, key beside the list")
        << Writes{{s("list"), pair}, {s("-1"), s("beside")}} << s("list.-1")
        << QVariant(s("beside")) << QStringList{s("-1"), s("list")};
    QTest::newRow("string list is not indexed") << Writes{{s("list"), QStringList{s("x"), s("y")}}}
                                                << s("list.0") << nothing << QStringList{s("list")};
    QTest::newRow("writing an index turns the list into a map")
        << Writes{{s("list"), pair}, {s("list.0"), s("z")}} << s("list")
        << QVariant(mapOf({{s("0"), s("z")}})) << QStringList{s("list.0")};

    QTest::newRow("empty key") << Writes{{QString(), 1}} << QString() << QVariant(1)
                               << QStringList();
    QTest::newRow("empty component in the middle")
        << Writes{{s("a..b"), 1}} << s("a..b") << QVariant(1) << QStringList{s("a..b")};
    QTest::newRow("empty component holds the map")
        << Writes{{s("a..b"), 1}} << s("a.") << QVariant(mapOf({{s("b"), 1}}))
        << QStringList{s("a..b")};
    QTest::newRow("trailing dot") << Writes{{s("a."), 1}} << s("a.") << QVariant(1)
                                  << QStringList{s("a.")};
    QTest::newRow("invalid value keeps the key")
        << Writes{{s("k"), 1}, {s("k"), QVariant()}} << s("k") << nothing << QStringList{s("k")};
}

void TestMemorySettings::paths()
{
    QFETCH(Writes, writes);
    QFETCH(QString, key);
    QFETCH(QVariant, expected);
    QFETCH(QStringList, keys);

    MemorySettingsProvider provider(nullptr);
    QCOMPARE(provider.type(), ISettingsProvider::RuntimeProvider);
    QSignalSpy changes(&provider, &ISettingsProvider::settingChanged);
    for (const auto& [writeKey, writeValue] : writes)
        provider.setSetting(writeKey, writeValue);

    compareExactly(provider.getSetting(key), expected);
    QCOMPARE(provider.keys(), keys);
    QCOMPARE(changes.count(), 0);
}

void TestMemorySettings::clearKeepsEverything()
{
    MemorySettingsProvider provider(nullptr, ISettingsProvider::IciProvider);
    QCOMPARE(provider.type(), ISettingsProvider::IciProvider);
    provider.setSetting(s("a.b"), 1);
    provider.setSetting(s("c"), s("text"));

    provider.clear();
    provider.save();
    provider.update(s("a.b"), 2);

    QCOMPARE(provider.keys(), (QStringList{s("a.b"), s("c")}));
    compareExactly(provider.getSetting(s("a.b")), QVariant(1));
    compareExactly(provider.getSetting(s("c")), QVariant(s("text")));
}

void TestMemorySettings::valueWithDefault_data()
{
    QTest::addColumn<QStringList>("path");
    QTest::addColumn<QVariant>("expected");

    const QVariant fallback(s("default"));
    QTest::newRow("empty path") << QStringList() << fallback;
    QTest::newRow("invalid value is returned, not the default")
        << QStringList{s("m"), s("invalid")} << QVariant();
    QTest::newRow("index") << QStringList{s("list"), s("1")} << QVariant(s("y"));
    QTest::newRow("index with a sign") << QStringList{s("list"), s("+1")} << QVariant(s("y"));
}

void TestMemorySettings::valueWithDefault()
{
    QFETCH(QStringList, path);
    QFETCH(QVariant, expected);

    const QVariantMap map{
        {s("m"), mapOf({{s("invalid"), QVariant()}})},
        {s("leaf"), 5},
        {s("list"), pair},
    };
    compareExactly(value(path, map, QVariant(s("default"))), expected);
}

void TestMemorySettings::setValueConsumesPath()
{
    QVariantMap map;
    QStringList path{s("a"), s("b"), s("c")};
    QVERIFY(set_value(path, 1, map));
    QCOMPARE(path, QStringList());
    QCOMPARE(map, (QVariantMap{{s("a"), mapOf({{s("b"), mapOf({{s("c"), 1}})}})}}));

    QStringList empty;
    QVERIFY(set_value(empty, 2, map));
    QCOMPARE(map.size(), 1);
}

void TestMemorySettings::setValueLeavesSharedCopies()
{
    // The nested maps are written where they are, yet a copy taken before must not see it.
    QVariantMap map;
    QVERIFY(set_value(s("a.b.c"), 1, map));
    const QVariantMap copy = map;

    QVERIFY(set_value(s("a.b.d"), 2, map));
    QVERIFY(set_value(s("a.e"), 3, map));

    QCOMPARE(copy, (QVariantMap{{s("a"), mapOf({{s("b"), mapOf({{s("c"), 1}})}})}}));
    QCOMPARE(
        map,
        (QVariantMap{{s("a"), mapOf({{s("b"), mapOf({{s("c"), 1}, {s("d"), 2}})}, {s("e"), 3}})}}));
}

void TestMemorySettings::expandMap_data()
{
    QTest::addColumn<QString>("prefix");
    QTest::addColumn<QVariant>("tree");
    QTest::addColumn<QStringList>("expected");

    const QStringList before{s("kept")};
    const QVariantMap tree{
        {s("z"), 1},
        {s("a"),
         mapOf({{s("y"), 2}, {s("b"), mapOf({{s("deep"), 3}})}, {s("empty"), QVariantMap()}})},
        {s("M"), QVariantList{4, 5}},
        {s("\u00e4"), 6},
    };

    QTest::newRow("depth first, code-unit order")
        << QString() << QVariant(tree)
        << (before + QStringList{s("M"), s("a.b.deep"), s("a.y"), s("z"), s("\u00e4")});
    QTest::newRow("below a prefix")
        << s("root") << QVariant(mapOf({{s("b"), 1}, {s("a"), mapOf({{s("c"), 2}})}}))
        << (before + QStringList{s("root.a.c"), s("root.b")});
    QTest::newRow("leaf without a prefix") << QString() << QVariant(5) << before;
    QTest::newRow("leaf with a prefix") << s("p") << QVariant(5) << (before + QStringList{s("p")});
    QTest::newRow("empty map") << s("p") << QVariant(QVariantMap()) << before;
}

void TestMemorySettings::expandMap()
{
    QFETCH(QString, prefix);
    QFETCH(QVariant, tree);
    QFETCH(QStringList, expected);

    QStringList keys{s("kept")};
    expand_map(keys, prefix, tree);
    QCOMPARE(keys, expected);
}

QTEST_GUILESS_MAIN(TestMemorySettings)
#include "tst_memorysettings.moc"
