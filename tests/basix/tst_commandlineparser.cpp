#include <basix/SimpleCommandLineParser.h>

#include <QtTest/QtTest>

using tvl::SimpleCommandLineParser;

class TestCommandLineParser : public QObject
{
    Q_OBJECT

private slots:
    void grammar_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QChar>("shortName"); // of "silent", asked for with 42 as the default
        QTest::addColumn<QString>("expected");
        // Expected: every key in order as "key:value" or a bare "key" for a switch, then every
        // positional argument in <>, then what hasSwitch() and option() say about "silent".
        const auto row = [](QStringList arguments, char16_t shortName, const QString& expected) {
            QTest::addRow("%s", qPrintable(arguments.join(u' '))) << arguments << QChar(shortName) << expected;
        };
        row({}, u's', "| -");
        row({"--name=value", "--verbose", "-x", "-x2=1", "-style", "-a=fusion"}, u's', "name:value verbose x x2:1 style a:fusion | -");
        row({"--name=", "--a=b=c", "--b=--c", "--path=/tmp/Größe ✓"}, u's', "name: a:b=c b:--c path:/tmp/Größe ✓ | -");
        row({"--name", "value", "a", "-y=2", ""}, u's', "name y:2 <value> <a> <> | -");
        row({"--x", "--", "--y=1", "-z", "--"}, u's', "x <--y=1> <-z> <--> | -");
        row({"-", "--=v", "-=v", "---x"}, u's', "<-> <--=v> <-=v> <---x> | -");
        row({"--o=1", "--o=2", "-p=1", "-p", "--q", "--q=3", "--r=1", "--r="}, u's', "o:2 p q:3 r: | -");
        row({"--b", "-a", "--c=1", "--b=2", "-a", "-name=1", "--name=2", "--Name=3"}, u's', "b:2 a c:1 name:2 Name:3 | -");
        row({"-s"}, u's', "s | 42");
        row({"--silent"}, u's', "silent | 42");
        row({"-s=yes", "-S"}, u's', "s:yes S | yes");
        row({"--silent=long", "-s=short"}, u's', "silent:long s:short | short");
        row({"-s=short", "--silent=long"}, u's', "s:short silent:long | long");
        row({"--silent=long", "-s"}, u's', "silent:long s | 42");
        row({"-s=short"}, 0, "s:short | -");
        row({QStringLiteral("-") + QChar(0)}, 0, QChar(0) + QStringLiteral(" | -"));
        row({"- =x"}, u' ', " :x | -");
        row({"- =x", "--silent=y"}, u' ', " :x silent:y | y");
    }

    void grammar()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QChar, shortName);
        arguments.prepend("--program=1"); // the program is never an option
        SimpleCommandLineParser parser({"app", "--other"});
        parser = SimpleCommandLineParser(arguments);
        const SimpleCommandLineParser copy(parser);
        QStringList parts;
        for (const QString& key : copy.keys()) {
            const QVariant value = copy.option(key);
            QVERIFY(copy.hasSwitch(key) && (!value.isValid() || (value.typeId() == QMetaType::QString && !value.toString().isNull())));
            parts << (value.isValid() ? key + ':' + value.toString() : key);
        }
        for (const QString& argument : copy.positionalArguments())
            parts << '<' + argument + '>';
        parts << "|" << (copy.hasSwitch("silent", shortName) ? copy.option("silent", shortName, 42).toString() : "-");
        QTEST(parts.join(' '), "expected");
        QCOMPARE(copy.arguments(), arguments);
    }
};

QTEST_GUILESS_MAIN(TestCommandLineParser)
#include "tst_commandlineparser.moc"
