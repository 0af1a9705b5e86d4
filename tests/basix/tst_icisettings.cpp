#include <basix/ICISettings.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QRegularExpression>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

using tvl::ICISettings;
using tvl::ICISettingsContext;

namespace {

struct Call
{
    QList<QVariant> args;
    QString file;
    int line = 0;
    void* userData = nullptr;
};

QList<Call> recordedCalls;

QVariant recordCall(ICISettingsContext* context)
{
    recordedCalls.append(Call{context->args(), context->file(), context->line(), context->userData()});
    return context->args().value(0);
}

QVariant failingCall(ICISettingsContext* context)
{
    context->setErrorMessage(QStringLiteral("fail expects exactly 2 arguments"));
    return QVariant(42);
}

QVariant richResult(ICISettingsContext*)
{
    return QVariantMap{{QStringLiteral("list"), QStringList{QStringLiteral("a"), QStringLiteral("b")}},
                       {QStringLiteral("number"), 7},
                       {QStringLiteral("bytes"), QByteArray("raw")}};
}

} // namespace

class IciSettingsTest : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;

    QString write(const QString& name, const QByteArray& text)
    {
        const QString path = m_dir.filePath(name);
        QDir().mkpath(QFileInfo(path).absolutePath());
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            qFatal("cannot write %s", qPrintable(path));
        file.write(text);
        return QFileInfo(path).absoluteFilePath();
    }

private Q_SLOTS:
    void init() { recordedCalls.clear(); }

    void values_data()
    {
        QTest::addColumn<QByteArray>("script");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QVariant>("expected");

        QTest::newRow("string") << QByteArray("name = 'settings'") << "name" << QVariant(QStringLiteral("settings"));
        QTest::newRow("utf-8 string") << QByteArray("title = 'Éditeur ✓'") << "title" << QVariant(QStringLiteral("Éditeur ✓"));
        QTest::newRow("integer") << QByteArray("n = 40 + 2") << "n" << QVariant(qlonglong(42));
        QTest::newRow("float") << QByteArray("f = 7 / 2") << "f" << QVariant(3.5);
        QTest::newRow("integral float stays a float") << QByteArray("f = 2.0") << "f" << QVariant(2.0);
        QTest::newRow("true") << QByteArray("b = true") << "b" << QVariant(true);
        QTest::newRow("false is a value") << QByteArray("b = false") << "b" << QVariant(false);
        QTest::newRow("nil is absent") << QByteArray("x = nil y = 1") << "x" << QVariant();
        QTest::newRow("sequence") << QByteArray("depends = { 'core', 'net' }") << "depends"
                                  << QVariant(QVariantList{QStringLiteral("core"), QStringLiteral("net")});
        QTest::newRow("empty table is an empty list") << QByteArray("depends = {}") << "depends" << QVariant(QVariantList());
        QTest::newRow("nested leaf") << QByteArray("data = { ui = { theme = 'dark' } }") << "data.ui.theme" << QVariant(QStringLiteral("dark"));
        QTest::newRow("map") << QByteArray("data = { a = 1, b = true }") << "data"
                             << QVariant(QVariantMap{{QStringLiteral("a"), qlonglong(1)}, {QStringLiteral("b"), true}});
        QTest::newRow("table with a hole is a map") << QByteArray("t = { [1] = 'a', [3] = 'c' }") << "t"
                                                    << QVariant(QVariantMap{{QStringLiteral("1"), QStringLiteral("a")}, {QStringLiteral("3"), QStringLiteral("c")}});
        QTest::newRow("mixed table is a map") << QByteArray("t = { 'a', x = 2 }") << "t"
                                              << QVariant(QVariantMap{{QStringLiteral("1"), QStringLiteral("a")}, {QStringLiteral("x"), qlonglong(2)}});
        QTest::newRow("list of tables") << QByteArray("t = { { n = 1 }, { 2 } }") << "t"
                                        << QVariant(QVariantList{QVariantMap{{QStringLiteral("n"), qlonglong(1)}}, QVariantList{qlonglong(2)}});
        QTest::newRow("function is not a setting") << QByteArray("f = function() end") << "f" << QVariant();
        QTest::newRow("function inside a map is left out") << QByteArray("t = { a = 1, f = print }") << "t"
                                                           << QVariant(QVariantMap{{QStringLiteral("a"), qlonglong(1)}});
        QTest::newRow("replaced built-in is a setting") << QByteArray("string = 'text'") << "string" << QVariant(QStringLiteral("text"));
        QTest::newRow("computed from the libraries") << QByteArray("s = string.upper('abc') .. math.max(1, 5) .. #{1, 2}") << "s" << QVariant(QStringLiteral("ABC52"));
        QTest::newRow("load runs text in the globals") << QByteArray("load('x = 5')() y = x") << "y" << QVariant(qlonglong(5));
        QTest::newRow("load with an environment") << QByteArray("env = {} load('z = 1', 'chunk', 't', env)() r = env.z") << "r" << QVariant(qlonglong(1));
        QTest::newRow("pcall still catches ordinary errors") << QByteArray("ok = pcall(error, 'x')") << "ok" << QVariant(false);
        QTest::newRow("patterns on ordinary text") << QByteArray("k, v = ('key=value'):match('^(.-)=(.*)$') s = ('a,b'):gsub(',', function() return ';' end) r = k .. v .. s") << "r" << QVariant(QStringLiteral("keyvaluea;b"));
        QTest::newRow("literal dotted global") << QByteArray("_ENV['a.b'] = 3") << "a.b" << QVariant(qlonglong(3));
    }

    void values()
    {
        QFETCH(QByteArray, script);
        QFETCH(QString, key);
        QFETCH(QVariant, expected);

        ICISettings settings(write(QStringLiteral("values.lua"), script));
        QVERIFY2(settings.evaluate(), qPrintable(settings.errorString()));
        QVERIFY(!settings.hasError());
        const QVariant actual = settings.value(key);
        QCOMPARE(actual.typeId(), expected.typeId());
        QCOMPARE(actual, expected);
        QCOMPARE(settings.contains(key), expected.isValid());
        QCOMPARE(settings.value(key, QStringLiteral("default")),
                 expected.isValid() ? expected : QVariant(QStringLiteral("default")));
    }

    void keysListLeavesWithoutBuiltins()
    {
        ICISettings settings(write(QStringLiteral("keys.lua"),
            "name = 'x'\n"
            "data = { b = { c = 1 }, a = 2, list = { 1, 2 } }\n"
            "helper = function() return 1 end\n"
            "empty = {}\n"
            "local hidden = 3\n"));
        QVERIFY(settings.evaluate());
        QCOMPARE(settings.keys(), (QStringList{QStringLiteral("data.a"), QStringLiteral("data.b.c"),
                                               QStringLiteral("data.list"), QStringLiteral("empty"),
                                               QStringLiteral("name")}));
        QVERIFY(!settings.contains(QStringLiteral("hidden")));
        QVERIFY(!settings.contains(QStringLiteral("string")));
        QVERIFY(!settings.contains(QStringLiteral("include")));
    }

    void sandboxHasNoWayOut_data()
    {
        QTest::addColumn<QByteArray>("expression");
        for (const char* name : {"io", "os", "package", "debug", "require", "dofile", "loadfile",
                                 "collectgarbage", "print", "string.dump", "coroutine"}) {
            QTest::newRow(name) << QByteArray(name);
        }
    }

    void sandboxHasNoWayOut()
    {
        QFETCH(QByteArray, expression);
        ICISettings settings(write(QStringLiteral("sandbox.lua"), "present = " + expression + " ~= nil"));
        QVERIFY(settings.evaluate());
        QCOMPARE(settings.value(QStringLiteral("present")), QVariant(false));
    }

    void removedVariableDisappearsOnReevaluation()
    {
        const QString path = write(QStringLiteral("removed.lua"), "a = 1\nb = 2\n");
        ICISettings settings(path);
        QVERIFY(settings.evaluate());
        QCOMPARE(settings.keys(), (QStringList{QStringLiteral("a"), QStringLiteral("b")}));

        write(QStringLiteral("removed.lua"), "a = 1\n");
        QVERIFY(settings.evaluate());
        QCOMPARE(settings.keys().size(), 2); // the kept text is evaluated until reload()
        QVERIFY(settings.reload());
        QVERIFY(settings.evaluate());
        QCOMPARE(settings.keys(), QStringList{QStringLiteral("a")});
    }

    void setValueIsSeenByScriptsAndAtOnce()
    {
        ICISettings settings(write(QStringLiteral("preset.lua"),
            "label = root .. '/' .. sys.osname\nsys.arch = 'x86_64'\n"));
        settings.setValue(QStringLiteral("root"), QStringLiteral("/opt/game"));
        settings.setValue(QStringLiteral("sys.osname"), QStringLiteral("Linux"));
        QCOMPARE(settings.value(QStringLiteral("sys.osname")), QVariant(QStringLiteral("Linux")));

        QVERIFY2(settings.evaluate(), qPrintable(settings.errorString()));
        QCOMPARE(settings.value(QStringLiteral("label")), QVariant(QStringLiteral("/opt/game/Linux")));
        QCOMPARE(settings.keys(), (QStringList{QStringLiteral("label"), QStringLiteral("root"),
                                               QStringLiteral("sys.arch"), QStringLiteral("sys.osname")}));

        settings.setValue(QStringLiteral("root"), QVariant());
        QVERIFY(!settings.contains(QStringLiteral("root")));
        QVERIFY(!settings.evaluate());
        QVERIFY2(settings.errorString().contains(QLatin1String("preset.lua:1: attempt to concatenate a nil value (global 'root')")),
                 qPrintable(settings.errorString()));
    }

    void setValueConvertsContainers()
    {
        ICISettings settings(write(QStringLiteral("containers.lua"),
            "count = #list\nfirst = list[1]\nnested = map.inner.value\n"));
        settings.setValue(QStringLiteral("list"), QStringList{QStringLiteral("x"), QStringLiteral("y")});
        settings.setValue(QStringLiteral("map"), QVariantMap{{QStringLiteral("inner"), QVariantMap{{QStringLiteral("value"), 3}}}});
        QVERIFY2(settings.evaluate(), qPrintable(settings.errorString()));
        QCOMPARE(settings.value(QStringLiteral("count")), QVariant(qlonglong(2)));
        QCOMPARE(settings.value(QStringLiteral("first")), QVariant(QStringLiteral("x")));
        QCOMPARE(settings.value(QStringLiteral("nested")), QVariant(qlonglong(3)));
    }

    void keepValuesAndStrictMode()
    {
        ICISettings settings(write(QStringLiteral("modes.lua"), "counter = (counter or 0) + 1\n"));
        QVERIFY(settings.evaluate());
        QVERIFY(settings.evaluate(true, false));
        QCOMPARE(settings.value(QStringLiteral("counter")), QVariant(qlonglong(2)));
        QVERIFY(settings.evaluate());
        QCOMPARE(settings.value(QStringLiteral("counter")), QVariant(qlonglong(1)));

        QVERIFY(!settings.evaluate(false, true));
        QVERIFY2(settings.errorString().endsWith(QLatin1String("modes.lua:1: undefined variable 'counter'")),
                 qPrintable(settings.errorString()));
        QVERIFY(settings.evaluate(true, true)); // counter exists now
        QCOMPARE(settings.value(QStringLiteral("counter")), QVariant(qlonglong(2)));
    }

    void includeReadsRelativeToTheIncludingFile()
    {
        const QString main = write(QStringLiteral("inc/main.lua"),
            "base = 'main'\ninclude('sub/common.lua')\nafter = shared .. '+' .. deeper\n");
        const QString common = write(QStringLiteral("inc/sub/common.lua"),
            "shared = base .. '/common'\ninclude('../deep.lua')\n");
        const QString deep = write(QStringLiteral("inc/deep.lua"), "deeper = 'deep'\n");

        ICISettings settings(main);
        QCOMPARE(settings.files(), QStringList{main});
        QVERIFY2(settings.evaluate(), qPrintable(settings.errorString()));
        QCOMPARE(settings.value(QStringLiteral("after")), QVariant(QStringLiteral("main/common+deep")));
        QCOMPARE(settings.files(), (QStringList{main, common, deep}));

        write(QStringLiteral("inc/main.lua"), "base = 'main'\n");
        QVERIFY(settings.reload());
        QVERIFY(settings.evaluate());
        QCOMPARE(settings.files(), QStringList{main});
        QVERIFY(!settings.contains(QStringLiteral("shared")));
    }

    void includedFilesChangeOnlyThroughReload()
    {
        const QString main = write(QStringLiteral("reload/main.lua"), "include('part.lua')\n");
        write(QStringLiteral("reload/part.lua"), "value = 1\n");
        ICISettings settings(main);
        QVERIFY(settings.evaluate());
        write(QStringLiteral("reload/part.lua"), "value = 2\n");
        QVERIFY(settings.evaluate());
        QCOMPARE(settings.value(QStringLiteral("value")), QVariant(qlonglong(1)));
        QVERIFY(settings.reload());
        QVERIFY(settings.evaluate());
        QCOMPARE(settings.value(QStringLiteral("value")), QVariant(qlonglong(2)));
    }

    void missingMainFile()
    {
        const QString path = m_dir.filePath(QStringLiteral("absent/none.lua"));
        ICISettings settings(path);
        QVERIFY(settings.hasError());
        QVERIFY2(settings.errorString().startsWith(path + QLatin1String(": cannot read the file")),
                 qPrintable(settings.errorString()));
        QVERIFY(!settings.evaluate());
        QVERIFY(!settings.reload());

        write(QStringLiteral("absent/none.lua"), "late = true\n");
        QVERIFY(settings.reload());
        QVERIFY(!settings.hasError());
        QVERIFY(settings.evaluate());
        QCOMPARE(settings.value(QStringLiteral("late")), QVariant(true));
    }

    void sourceGivenInMemory()
    {
        write(QStringLiteral("memory/part.lua"), "part = 'from disk'\n");
        ICISettings settings(m_dir.filePath(QStringLiteral("memory/virtual.lua")),
                             QByteArray("include('part.lua')\nwhole = part .. '!'\n"));
        QVERIFY(!settings.hasError());
        QVERIFY2(settings.evaluate(), qPrintable(settings.errorString()));
        QCOMPARE(settings.value(QStringLiteral("whole")), QVariant(QStringLiteral("from disk!")));
        QVERIFY(settings.reload());
        QVERIFY(settings.evaluate());
    }

    void nativeFunctionsGetArgumentsAndCallSite()
    {
        const QString main = write(QStringLiteral("native/main.lua"),
            "a = record('x', 2, true, { 1, 2 }, { k = 'v' })\n"
            "include('other.lua')\n"
            "r = rich()\n");
        const QString other = write(QStringLiteral("native/other.lua"), "\n\nb = record()\n");
        int marker = 0;
        ICISettings settings(main);
        settings.createFunction(QStringLiteral("record"), recordCall, &marker);
        settings.createFunction(QStringLiteral("rich"), richResult);
        QVERIFY2(settings.evaluate(), qPrintable(settings.errorString()));

        QCOMPARE(recordedCalls.size(), 2);
        const Call first = recordedCalls.at(0);
        QCOMPARE(first.args, (QList<QVariant>{QStringLiteral("x"), qlonglong(2), true,
                                              QVariantList{qlonglong(1), qlonglong(2)},
                                              QVariantMap{{QStringLiteral("k"), QStringLiteral("v")}}}));
        QCOMPARE(first.file, main);
        QCOMPARE(first.line, 1);
        QCOMPARE(first.userData, static_cast<void*>(&marker));
        QCOMPARE(recordedCalls.at(1).file, other);
        QCOMPARE(recordedCalls.at(1).line, 3);
        QVERIFY(recordedCalls.at(1).args.isEmpty());

        QCOMPARE(settings.value(QStringLiteral("a")), QVariant(QStringLiteral("x")));
        QVERIFY(!settings.contains(QStringLiteral("b")));
        QCOMPARE(settings.value(QStringLiteral("r.list")), QVariant(QVariantList{QStringLiteral("a"), QStringLiteral("b")}));
        QCOMPARE(settings.value(QStringLiteral("r.number")), QVariant(qlonglong(7)));
        QCOMPARE(settings.value(QStringLiteral("r.bytes")), QVariant(QStringLiteral("raw")));
        QVERIFY(!settings.contains(QStringLiteral("record")));
    }

    void nativeFunctionErrorStopsTheScriptAtTheCall()
    {
        const QString path = write(QStringLiteral("native/fail.lua"), "before = 1\n\nx = fail(1)\nafter = 2\n");
        ICISettings settings(path);
        settings.createFunction(QStringLiteral("fail"), failingCall);
        QVERIFY(!settings.evaluate());
        QCOMPARE(settings.errorString(), path + QLatin1String(":3: fail expects exactly 2 arguments"));

        // Removing a function makes calls to it ordinary errors.
        settings.createFunction(QStringLiteral("fail"), nullptr);
        QVERIFY(!settings.evaluate());
        QVERIFY2(settings.errorString().contains(QLatin1String("global 'fail'")), qPrintable(settings.errorString()));
    }

    void failedEvaluationKeepsTheLastGoodState()
    {
        const QString main = write(QStringLiteral("atomic/main.lua"), "good = 1\ninclude('a.lua')\n");
        const QString part = write(QStringLiteral("atomic/a.lua"), "part = 2\n");
        ICISettings settings(main);
        QVERIFY(settings.evaluate());

        write(QStringLiteral("atomic/main.lua"), "good = 5\ninclude('b.lua')\nerror('broken')\n");
        write(QStringLiteral("atomic/b.lua"), "other = 3\n");
        QVERIFY(settings.reload());
        QVERIFY(!settings.evaluate());
        QVERIFY(settings.hasError());
        QCOMPARE(settings.value(QStringLiteral("good")), QVariant(qlonglong(1)));
        QCOMPARE(settings.keys(), (QStringList{QStringLiteral("good"), QStringLiteral("part")}));
        QCOMPARE(settings.files(), (QStringList{main, part}));

        write(QStringLiteral("atomic/main.lua"), "good = 6\n");
        QVERIFY(settings.reload());
        QVERIFY(settings.evaluate());
        QVERIFY(!settings.hasError());
        QVERIFY(settings.errorString().isEmpty());
        QCOMPARE(settings.keys(), QStringList{QStringLiteral("good")});
    }

    // Every broken script ends in an error naming the file and line, and the next evaluation
    // of a sound script in the same process works.
    void badInput_data()
    {
        QTest::addColumn<QByteArray>("script");
        QTest::addColumn<QString>("file");
        QTest::addColumn<int>("line");
        QTest::addColumn<QString>("message");

        QTest::newRow("syntax error") << QByteArray("a = 1\nb = = 2\n") << "bad.lua" << 2 << "unexpected symbol near '='";
        QTest::newRow("unfinished string") << QByteArray("a = 'open\n") << "bad.lua" << 1 << "unfinished string";
        QTest::newRow("runtime error") << QByteArray("a = 1\n\nb = nil + 1\n") << "bad.lua" << 3 << "attempt to perform arithmetic on a nil value";
        QTest::newRow("error()") << QByteArray("error('stop here')\n") << "bad.lua" << 1 << "stop here";
        QTest::newRow("error without position") << QByteArray("\nerror('bare', 0)\n") << "bad.lua" << 2 << "bare";
        QTest::newRow("error with a table") << QByteArray("error({})\n") << "bad.lua" << 1 << "error object is a table value";
        QTest::newRow("endless loop") << QByteArray("x = 1\nwhile true do end\n") << "bad.lua" << 2 << "instruction limit of 2000000 exceeded";
        QTest::newRow("endless loop behind pcall") << QByteArray("while true do\n pcall(function() while true do end end)\nend\n") << "bad.lua" << 2 << "instruction limit of 2000000 exceeded";
        QTest::newRow("endless recursion") << QByteArray("local function f(n)\n return f(n + 1) + 1\nend\nf(1)\n") << "bad.lua" << 2 << "memory limit of 16 MiB exceeded";
        QTest::newRow("memory bomb") << QByteArray("t = {}\nfor i = 1, 1e9 do\n t[i] = { i, i, i }\nend\n") << "bad.lua" << 3 << "memory limit of 16 MiB exceeded";
        QTest::newRow("memory bomb behind pcall") << QByteArray("t = {}\npcall(function() for i = 1, 1e9 do t[i] = {} end end)\nx = 1\n") << "bad.lua" << 2 << "memory limit of 16 MiB exceeded";
        QTest::newRow("gigabyte string") << QByteArray("a = 1\ns = string.rep('x', 1024 * 1024 * 1024)\n") << "bad.lua" << 2 << "memory limit of 16 MiB exceeded";
        QTest::newRow("doubling string") << QByteArray("s = 'x'\nwhile true do\n s = s .. s\nend\n") << "bad.lua" << 3 << "memory limit of 16 MiB exceeded";
        QTest::newRow("binary chunk through load") << QByteArray("f = assert(load('\\27Lua\\84\\0'))\n") << "bad.lua" << 1 << "attempt to load a binary chunk";
        QTest::newRow("include of a missing file") << QByteArray("a = 1\ninclude('missing.lua')\n") << "bad.lua" << 2 << "cannot read";
        QTest::newRow("include cycle") << QByteArray("include('cycle-b.lua')\n") << "cycle-a.lua" << 1 << "include cycle:";
        QTest::newRow("include of a broken file") << QByteArray("include('broken.lua')\n") << "broken.lua" << 2 << "syntax error near 'oops'";
        QTest::newRow("include without a name") << QByteArray("\ninclude()\n") << "bad.lua" << 2 << "include expects one file name";
        QTest::newRow("not UTF-8") << QByteArray("a = 'ok'\nb = '\xE9t\xE9'\n") << "bad.lua" << 2 << "not valid UTF-8";
        QTest::newRow("overlong UTF-8") << QByteArray("a = '\xC0\xAF'\n") << "bad.lua" << 1 << "not valid UTF-8";
        QTest::newRow("empty file") << QByteArray("") << "bad.lua" << 1 << "the file is empty";
        QTest::newRow("blank file") << QByteArray(" \n\t\n") << "bad.lua" << 1 << "the file is empty";
        QTest::newRow("table containing itself") << QByteArray("t = {}\nt.self = t\n") << "bad.lua" << 0 << "the value of 't.self' contains itself";
        QTest::newRow("finalizer") << QByteArray("x = 1\nsetmetatable({}, { __gc = function() while true do end end })\n") << "bad.lua" << 2 << "finalizers (__gc) are not available";
        QTest::newRow("pattern bomb") << QByteArray("s = ('a'):rep(20000)\nx = s:find('.-.-.-.-b')\n") << "bad.lua" << 2 << "pattern too complex for a subject of 20000 bytes";
        QTest::newRow("loop of costly patterns") << QByteArray("for i = 1, 1e9 do\n local x = ('a'):rep(2000):find('a-b')\nend\n") << "bad.lua" << 2 << "instruction limit of 2000000 exceeded";
        QTest::newRow("metamethod recursion") << QByteArray("local t = setmetatable({}, { __index = function(t, k) return t[k] end })\nx = t.a\n") << "bad.lua" << 1 << "stack overflow";
        QTest::newRow("os is not there") << QByteArray("\nos.execute('true')\n") << "bad.lua" << 2 << "attempt to index a nil value (global 'os')";
    }

    void badInput()
    {
        QFETCH(QByteArray, script);
        QFETCH(QString, file);
        QFETCH(int, line);
        QFETCH(QString, message);

        write(QStringLiteral("cycle-a.lua"), "include('cycle-b.lua')\n");
        write(QStringLiteral("cycle-b.lua"), "include('cycle-a.lua')\n");
        write(QStringLiteral("broken.lua"), "x = 1\ny oops\n");
        const QString path = write(QStringLiteral("bad.lua"), script);

        ICISettings settings(path);
        settings.setInstructionLimit(2'000'000);
        settings.setMemoryLimit(16 * 1024 * 1024);
        QVERIFY(!settings.evaluate());
        QVERIFY(settings.hasError());
        const QString error = settings.errorString();
        const QString location = line > 0 ? QStringLiteral("%1:%2: ").arg(m_dir.filePath(file)).arg(line)
                                          : QStringLiteral("%1: ").arg(m_dir.filePath(file));
        QVERIFY2(error.startsWith(location), qPrintable(error + QLatin1String(" <> ") + location));
        QVERIFY2(error.contains(message), qPrintable(error));
        QVERIFY(settings.keys().isEmpty());

        ICISettings sound(write(QStringLiteral("sound.lua"), "fine = true\n"));
        QVERIFY(sound.evaluate());
        QCOMPARE(sound.value(QStringLiteral("fine")), QVariant(true));
    }

    void includeCycleNamesTheChain()
    {
        const QString a = write(QStringLiteral("chain/a.lua"), "include('b.lua')\n");
        const QString b = write(QStringLiteral("chain/b.lua"), "x = 1\ninclude('a.lua')\n");
        ICISettings settings(a);
        QVERIFY(!settings.evaluate());
        QCOMPARE(settings.errorString(),
                 QStringLiteral("%1:2: include cycle: %2 -> %1 -> %2").arg(b, a));
    }

    void defaultLimitsStopRunawayScripts()
    {
        ICISettings settings(write(QStringLiteral("runaway.lua"), "while true do end\n"));
        QCOMPARE(settings.instructionLimit(), ICISettings::DefaultInstructionLimit);
        QCOMPARE(settings.memoryLimit(), ICISettings::DefaultMemoryLimit);
        QVERIFY(!settings.evaluate());
        QVERIFY2(settings.errorString().endsWith(QLatin1String("runaway.lua:1: instruction limit of 50000000 exceeded")),
                 qPrintable(settings.errorString()));

        ICISettings recursion(write(QStringLiteral("recursion.lua"),
                                    "local function f(n)\n return f(n + 1) + 1\nend\nf(1)\n"));
        QVERIFY(!recursion.evaluate());
        QVERIFY2(recursion.errorString().endsWith(QLatin1String("recursion.lua:2: stack overflow")),
                 qPrintable(recursion.errorString()));

        ICISettings bomb(write(QStringLiteral("bomb.lua"), "s = string.rep('x', 1 << 30)\n"));
        QVERIFY(!bomb.evaluate());
        QVERIFY2(bomb.errorString().endsWith(QLatin1String("bomb.lua:1: memory limit of 128 MiB exceeded")),
                 qPrintable(bomb.errorString()));
    }

    void byteOrderMarkIsSkipped()
    {
        ICISettings settings(write(QStringLiteral("bom.lua"), "\xEF\xBB\xBFvalue = 'bom'\n"));
        QVERIFY2(settings.evaluate(), qPrintable(settings.errorString()));
        QCOMPARE(settings.value(QStringLiteral("value")), QVariant(QStringLiteral("bom")));
    }
};

QTEST_GUILESS_MAIN(IciSettingsTest)
#include "tst_icisettings.moc"
