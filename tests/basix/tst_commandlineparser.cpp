#include <basix/SimpleCommandLineParser.h>

#include <QtTest/QtTest>

using tvl::SimpleCommandLineParser;

namespace {

const QVariant bare; // the expected value of a switch given without a value

/// The expected value of an option given with one; never a null string.
QVariant value(const char* text)
{
    QString string = QString::fromUtf8(text);
    if (string.isNull())
        string = QStringLiteral("");
    return string;
}

} // namespace

class TestCommandLineParser : public QObject
{
    Q_OBJECT

private slots:
    void grammar_data();
    void grammar();
    void shortNames_data();
    void shortNames();
    void absentOptionIsInvalid();
    void copies();
};

void TestCommandLineParser::grammar_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QStringList>("keys");
    QTest::addColumn<QVariantMap>("options");
    QTest::addColumn<QStringList>("positional");

    const QString app = QStringLiteral("/usr/bin/app");
    auto row = [&](const char* name, QStringList args, QStringList keys, QVariantMap options,
                   QStringList positional) {
        args.prepend(app);
        QTest::newRow(name) << args << keys << options << positional;
    };
    using L = QStringList;
    using M = QVariantMap;
    const auto s = [](const char* text) { return QString::fromUtf8(text); };

    row("nothing", L {}, L {}, M {}, L {});
    QTest::newRow("program looking like an option") << L {s("--prog=1")} << L {} << M {} << L {};
    row("long option", L {s("--name=value")}, L {s("name")}, M {{s("name"), value("value")}}, L {});
    row("long switch", L {s("--verbose")}, L {s("verbose")}, M {{s("verbose"), bare}}, L {});
    row("short switch", L {s("-s")}, L {s("s")}, M {{s("s"), bare}}, L {});
    row("short option", L {s("-s=1")}, L {s("s")}, M {{s("s"), value("1")}}, L {});
    row("one dash long switch", L {s("-style")}, L {s("style")}, M {{s("style"), bare}}, L {});
    row("one dash long option", L {s("-style=fusion")}, L {s("style")}, M {{s("style"), value("fusion")}}, L {});
    row("empty value", L {s("--name=")}, L {s("name")}, M {{s("name"), value("")}}, L {});
    row("first equals splits", L {s("--a=b=c")}, L {s("a")}, M {{s("a"), value("b=c")}}, L {});
    row("value looking like an option", L {s("--a=--b")}, L {s("a")}, M {{s("a"), value("--b")}}, L {});
    row("utf-8 value", L {s("--path=/tmp/Größe ✓")}, L {s("path")}, M {{s("path"), value("/tmp/Größe ✓")}}, L {});
    row("value not taken from next", L {s("--name"), s("value")}, L {s("name")}, M {{s("name"), bare}}, L {s("value")});
    row("double dash ends options", L {s("--x"), s("--"), s("--y=1"), s("-z"), s("-"), s("pos")},
        L {s("x")}, M {{s("x"), bare}}, L {s("--y=1"), s("-z"), s("-"), s("pos")});
    row("second double dash is positional", L {s("--"), s("--")}, L {}, M {}, L {s("--")});
    row("lone dash", L {s("-")}, L {}, M {}, L {s("-")});
    row("long dash without name", L {s("--=v")}, L {}, M {}, L {s("--=v")});
    row("short dash without name", L {s("-=v")}, L {}, M {}, L {s("-=v")});
    row("three dashes", L {s("---x")}, L {}, M {}, L {s("---x")});
    row("empty argument", L {QString()}, L {}, M {}, L {QString()});
    row("positional order", L {s("a"), s("--x"), s("b"), s("-y=2"), s("c")}, L {s("x"), s("y")},
        M {{s("x"), bare}, {s("y"), value("2")}}, L {s("a"), s("b"), s("c")});
    row("last value wins", L {s("--o=1"), s("--o=2")}, L {s("o")}, M {{s("o"), value("2")}}, L {});
    row("later switch drops the value", L {s("--o=1"), s("--o")}, L {s("o")}, M {{s("o"), bare}}, L {});
    row("later value replaces switch", L {s("--o"), s("--o=3")}, L {s("o")}, M {{s("o"), value("3")}}, L {});
    row("later empty value wins", L {s("--o=1"), s("--o=")}, L {s("o")}, M {{s("o"), value("")}}, L {});
    row("one and two dashes are one option", L {s("-name=1"), s("--name=2")}, L {s("name")},
        M {{s("name"), value("2")}}, L {});
    row("keys in first-seen order, once", L {s("--b"), s("-a"), s("--c=1"), s("--b=2"), s("-a")},
        L {s("b"), s("a"), s("c")}, M {{s("b"), value("2")}, {s("a"), bare}, {s("c"), value("1")}}, L {});
    row("names are case-sensitive", L {s("--Name=1"), s("--name=2")}, L {s("Name"), s("name")},
        M {{s("Name"), value("1")}, {s("name"), value("2")}}, L {});
}

void TestCommandLineParser::grammar()
{
    QFETCH(QStringList, arguments);
    QFETCH(QStringList, keys);
    QFETCH(QVariantMap, options);
    QFETCH(QStringList, positional);

    const SimpleCommandLineParser parser(arguments);
    QCOMPARE(parser.arguments(), arguments);
    QCOMPARE(parser.keys(), keys);
    QCOMPARE(parser.positionalArguments(), positional);

    for (auto it = options.cbegin(); it != options.cend(); ++it) {
        QVERIFY2(parser.hasSwitch(it.key()), qPrintable(it.key()));
        const QVariant actual = parser.option(it.key());
        QCOMPARE(actual.isValid(), it.value().isValid());
        if (it.value().isValid()) {
            QCOMPARE(actual.typeId(), QMetaType::QString);
            QCOMPARE(actual.toString(), it.value().toString());
            QVERIFY(!actual.toString().isNull());
        }
    }
    QVERIFY(!parser.hasSwitch(QStringLiteral("absent")));
}

void TestCommandLineParser::shortNames_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QChar>("shortName");
    QTest::addColumn<bool>("has");
    QTest::addColumn<QVariant>("option"); // with 42 as the default

    const auto args = [](std::initializer_list<const char*> list) {
        QStringList result {QStringLiteral("app")};
        for (const char* item : list)
            result.append(QString::fromUtf8(item));
        return result;
    };
    const QString silent = QStringLiteral("silent");
    const QVariant fallback(42);

    QTest::newRow("short switch") << args({"-s"}) << silent << QChar(u's') << true << fallback;
    QTest::newRow("long switch") << args({"--silent"}) << silent << QChar(u's') << true << fallback;
    QTest::newRow("short option") << args({"-s=yes"}) << silent << QChar(u's') << true << QVariant(QStringLiteral("yes"));
    QTest::newRow("other letter") << args({"-x"}) << silent << QChar(u's') << false << fallback;
    QTest::newRow("short name is case-sensitive") << args({"-S"}) << silent << QChar(u's') << false << fallback;
    QTest::newRow("long then short") << args({"--silent=long", "-s=short"}) << silent << QChar(u's') << true
                                     << QVariant(QStringLiteral("short"));
    QTest::newRow("short then long") << args({"-s=short", "--silent=long"}) << silent << QChar(u's') << true
                                     << QVariant(QStringLiteral("long"));
    QTest::newRow("short switch last") << args({"--silent=long", "-s"}) << silent << QChar(u's') << true << fallback;
    QTest::newRow("long switch last") << args({"-s=short", "--silent"}) << silent << QChar(u's') << true << fallback;
    QTest::newRow("short name unused") << args({"-s=short"}) << silent << QChar() << false << fallback;
    QTest::newRow("null short name") << (args({}) << QStringLiteral("-") + QChar(u'\0'))
                                     << QStringLiteral("no-restart") << QChar() << false << fallback;
    QTest::newRow("blank short name") << args({"- =x"}) << silent << QChar(u' ') << false << fallback;
    QTest::newRow("blank short name, long given") << args({"- =x", "--silent=y"}) << silent << QChar(u' ')
                                                  << true << QVariant(QStringLiteral("y"));
    QTest::newRow("null short name, long given") << args({"--no-restart"}) << QStringLiteral("no-restart") << QChar()
                                                 << true << fallback;
}

void TestCommandLineParser::shortNames()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, name);
    QFETCH(QChar, shortName);
    QFETCH(bool, has);
    QFETCH(QVariant, option);

    const SimpleCommandLineParser parser(arguments);
    QCOMPARE(parser.hasSwitch(name, shortName), has);
    QCOMPARE(parser.option(name, shortName, 42), option);
}

void TestCommandLineParser::absentOptionIsInvalid()
{
    const SimpleCommandLineParser parser({QStringLiteral("app"), QStringLiteral("--bare"),
                                          QStringLiteral("--empty=")});

    const QVariant absent = parser.option(QStringLiteral("missing"), QChar(u' '), QVariant());
    QVERIFY(!absent.isValid());
    QVERIFY(absent.toString().isNull());

    const QVariant bareSwitch = parser.option(QStringLiteral("bare"), QChar(u' '), QVariant());
    QVERIFY(!bareSwitch.isValid());
    QVERIFY(bareSwitch.toString().isNull());

    const QVariant empty = parser.option(QStringLiteral("empty"), QChar(u' '), QVariant());
    QVERIFY(empty.isValid());
    QVERIFY(!empty.toString().isNull());
    QVERIFY(empty.toString().isEmpty());
}

void TestCommandLineParser::copies()
{
    const QStringList arguments {QStringLiteral("app"), QStringLiteral("--a=1"), QStringLiteral("pos")};
    auto* original = new SimpleCommandLineParser(arguments);
    const SimpleCommandLineParser copy(*original);
    SimpleCommandLineParser assigned({QStringLiteral("app"), QStringLiteral("--other")});
    assigned = *original;
    delete original;

    const SimpleCommandLineParser* const parsers[] = {&copy, &assigned};
    for (const SimpleCommandLineParser* parser : parsers) {
        QCOMPARE(parser->arguments(), arguments);
        QCOMPARE(parser->keys(), QStringList {QStringLiteral("a")});
        QCOMPARE(parser->option(QStringLiteral("a")), QVariant(QStringLiteral("1")));
        QCOMPARE(parser->positionalArguments(), QStringList {QStringLiteral("pos")});
        QVERIFY(!parser->hasSwitch(QStringLiteral("other")));
    }
}

QTEST_GUILESS_MAIN(TestCommandLineParser)
#include "tst_commandlineparser.moc"
