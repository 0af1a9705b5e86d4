#include <basix/ICISettings.h>

#include <TestSupport.h>

#include <QtTest/QtTest>

#include <sys/stat.h>

using tvl::ICISettings;
using tvl::ICISettingsContext;
using L = QVariantList;
using M = QVariantMap;

static QList<ICISettingsContext> calls; // what the native function "record" was given

// A list of two references to a list of two references... `depth` deep: 2^depth leaves.
static QVariant sharedList(int depth)
{
    QVariant list = 1;
    for (int i = 0; i < depth; ++i)
        list = QVariantList{list, list};
    return list;
}

class IciSettingsTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString write(const QString& name, const QByteArray& text) { return testsupport::writeFile(m_dir.filePath(name), text); }

private slots:
    void values()
    {
        // Script, key, value: an invalid one for "absent".
        const std::tuple<const char*, const char*, QVariant> rows[] = {
            {"title = 'Éditeur ✓'", "title", QString("Éditeur ✓")},
            {"\xEF\xBB\xBFvalue = 'bom'", "value", QString("bom")}, // a byte-order mark is skipped
            {"n = 40 + 2", "n", 42LL}, {"f = 7 / 2", "f", 3.5}, {"f = 2.0", "f", 2.0}, // an integral float stays a float
            {"b = false", "b", false}, {"x = nil y = 1", "x", QVariant()}, {"f = function() end", "f", QVariant()},
            {"depends = { 'core', 'net' }", "depends", L{"core", "net"}}, {"depends = {}", "depends", L()},
            {"data = { ui = { theme = 'dark' } }", "data.ui.theme", QString("dark")},
            {"data = { a = 1, b = true }", "data", M{{"a", 1LL}, {"b", true}}},
            {"t = { [1] = 'a', [3] = 'c' }", "t", M{{"1", "a"}, {"3", "c"}}}, // a hole makes a map
            {"t = { 'a', x = 2 }", "t", M{{"1", "a"}, {"x", 2LL}}},
            {"t = { { n = 1 }, { 2 } }", "t", L{M{{"n", 1LL}}, L{2LL}}},
            {"t = { a = 1, f = print }", "t", M{{"a", 1LL}}},
            {"string = 'text'", "string", QString("text")}, // a replaced built-in is a setting
            {"s = string.upper('abc') .. math.max(1, 5) .. #{1, 2} .. utf8.char(8594)", "s", QString("ABC52→")},
            {"load('x = 5')() y = x", "y", 5LL}, {"env = {} load('z = 1', 'chunk', 't', env)() r = env.z", "r", 1LL},
            {"ok = pcall(error, 'x')", "ok", false}, {"_ENV['a.b'] = 3", "a.b", 3LL},
            // The library functions that are replaced by bounded ones work as before.
            {"s = table.concat({ 1, 'a', 2.5 }, '-')", "s", QString("1-a-2.5")},
            {"t = { 3, 1, 2 } table.sort(t) u = { 3, 1, 2 } table.sort(u, function(a, b) return a > b end) "
             "s = table.concat(t) .. table.concat(u)", "s", QString("123321")},
            {"t = { 1, 2, 3 } table.insert(t, 1, 0) table.insert(t, 9) x = table.remove(t, 2) "
             "table.move(t, 1, 2, 3) s = x .. ':' .. table.concat(t, ',')", "s", QString("1:0,2,0,2")},
            {"s = ('ab'):rep(3, ',') .. ('x'):rep(0) .. ('y'):rep(2) .. ('z'):rep(-1)", "s", QString("ab,ab,abyy")},
            {"s = utf8.len('h\xC3\xA9llo') .. utf8.codepoint('\xC3\xA9') .. utf8.offset('h\xC3\xA9llo', 3)", "s", QString("52334")},
            {"f = load(('x = 1 '):rep(20000)) f() y = x", "y", 1LL}, // a long text, read in pieces
            {"same = select(2, load(('x = 1 '):rep(20000) .. '=')) == select(2, load(('x = 1 '):rep(20) .. '='))", "same", true},
            {"x = (io or os or package or debug or require or dofile or loadfile or collectgarbage or print "
             "or string.dump or coroutine) == nil", "x", true}};
        for (const auto& [script, key, expected] : rows) {
            ICISettings settings(write("values.lua", script));
            QVERIFY2(settings.evaluate() && !settings.hasError(), qPrintable(settings.errorString()));
            QCOMPARE(settings.value(key).typeId(), expected.typeId());
            QCOMPARE(settings.value(key, "default"), expected.isValid() ? expected : QVariant("default"));
            QCOMPARE(settings.contains(key), expected.isValid());
        }
    }

    void keysListLeavesWithoutBuiltins()
    {
        ICISettings settings(write("keys.lua", "name = 'x'\ndata = { b = { c = 1 }, a = 2, list = { 1, 2 } }\n"
                                               "helper = function() return 1 end\nempty = {}\nlocal hidden = 3\n"));
        QVERIFY(settings.evaluate());
        QCOMPARE(settings.keys(), (QStringList{"data.a", "data.b.c", "data.list", "empty", "name"}));
    }

    void setValueKeepValuesAndStrict()
    {
        ICISettings settings(write("preset.lua", "label = root .. '/' .. sys.osname .. #list .. map.inner.value\n"
                                                 "sys.arch = 'x86_64'\ncounter = (counter or 0) + 1\n"));
        settings.setValue("root", "/opt/game");
        settings.setValue("sys.osname", "Linux");
        settings.setValue("list", QStringList{"x", "y"});
        settings.setValue("map", M{{"inner", M{{"value", 3}}}});
        QCOMPARE(settings.value("sys.osname"), "Linux"); // at once, before any evaluation
        QVERIFY2(settings.evaluate(), qPrintable(settings.errorString()));
        QCOMPARE(settings.value("label"), "/opt/game/Linux23");
        QCOMPARE(settings.keys(), (QStringList{"counter", "label", "list", "map.inner.value", "root", "sys.arch", "sys.osname"}));
        QVERIFY(settings.evaluate(true));
        QCOMPARE(settings.value("counter"), 2LL);
        QVERIFY(settings.evaluate());
        QCOMPARE(settings.value("counter"), 1LL);

        settings.setValue("root", QVariant());
        QVERIFY(!settings.contains("root") && !settings.evaluate());
        QVERIFY2(settings.errorString().contains("preset.lua:1: attempt to concatenate a nil value (global 'root')"),
                 qPrintable(settings.errorString()));
        settings.setValue("root", "/");
        QVERIFY(!settings.evaluate(false, true));
        QVERIFY(settings.errorString().endsWith("preset.lua:3: undefined variable 'counter'"));
        QVERIFY(settings.evaluate(true, true)); // counter exists now
        QCOMPARE(settings.value("counter"), 2LL);
    }

    void includeAndReload()
    {
        const QString main = write("inc/main.lua", "base = 'main'\ninclude('sub/common.lua')\nafter = shared .. '+' .. deeper\n");
        const QString common = write("inc/sub/common.lua", "shared = base .. '/common'\ninclude('../deep.lua')\n");
        const QString deep = write("inc/deep.lua", "deeper = 'deep'\n");
        ICISettings settings(main);
        QCOMPARE(settings.files(), QStringList{main});
        QVERIFY2(settings.evaluate(), qPrintable(settings.errorString()));
        QCOMPARE(settings.value("after"), "main/common+deep");
        QCOMPARE(settings.files(), (QStringList{main, common, deep}));

        write("inc/deep.lua", "deeper = 'changed'\n"); // the kept texts are evaluated until reload()
        write("inc/main.lua", "base = 'main'\n");
        QVERIFY(settings.evaluate());
        QCOMPARE(settings.value("after"), "main/common+deep");
        QVERIFY(settings.reload() && settings.evaluate());
        QCOMPARE(settings.files(), QStringList{main});
        QCOMPARE(settings.keys(), QStringList{"base"});

        const QString a = write("chain/a.lua", "include('b.lua')\n"), b = write("chain/b.lua", "x = 1\ninclude('a.lua')\n");
        ICISettings cycle(a);
        QVERIFY(!cycle.evaluate());
        QCOMPARE(cycle.errorString(), QStringLiteral("%1:2: include cycle: %2 -> %1 -> %2").arg(b, a));
    }

    void readingAndReloading()
    {
        const QString path = m_dir.filePath("absent/none.lua");
        ICISettings settings(path);
        QVERIFY(settings.hasError() && settings.errorString().startsWith(path + ": cannot read the file"));
        QVERIFY(!settings.evaluate() && !settings.reload());
        write("absent/none.lua", "late = true\n");
        QVERIFY(settings.reload() && !settings.hasError() && settings.evaluate());
        QCOMPARE(settings.value("late"), true);

        write("memory/part.lua", "part = 'from disk'\n"); // relative to the named file, which need not exist
        ICISettings memory(m_dir.filePath("memory/virtual.lua"), "include('part.lua')\nwhole = part .. '!'\n");
        QVERIFY(!memory.hasError() && memory.reload() && memory.evaluate());
        QCOMPARE(memory.value("whole"), "from disk!");
    }

    // Only regular files are read, as main file or included: anything else is an error naming
    // the path, at once (a FIFO without a writer would wait forever, /dev/zero never ends).
    void onlyRegularFilesAreRead_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<bool>("included");
        QTest::addColumn<QString>("reason");
        for (const bool included : {false, true}) {
            const auto row = [&](const char* kind, const char* reason) {
                QTest::addRow("%s%s", kind, included ? ", included" : "") << kind << included << reason;
            };
            row("fifo", "it is not a regular file");
            row("device", "it is not a regular file");
            row("directory", "it is a directory");
            row("too large", "the file is larger than 16 MiB");
            row("missing", "No such file or directory");
        }
    }

    void onlyRegularFilesAreRead()
    {
        QFETCH(QString, kind);
        QFETCH(bool, included);
        QTemporaryDir dir;
        const QString path = dir.filePath("odd.lua");
        if (kind == "fifo")
            QCOMPARE(::mkfifo(QFile::encodeName(path).constData(), 0600), 0);
        else if (kind == "device")
            QVERIFY(QFile::link("/dev/zero", path));
        else if (kind == "directory")
            QVERIFY(QDir().mkpath(path));
        else if (kind == "too large") // sparse: its size is what counts
            QVERIFY(QFile(testsupport::writeFile(path, "x = 1\n")).resize(16 * 1024 * 1024 + 1));
        const QString main = included ? testsupport::writeFile(dir.filePath("main.lua"), "x = 1\ninclude('odd.lua')\n") : path;
        QElapsedTimer clock;
        clock.start();
        ICISettings settings(main);
        QVERIFY(!settings.evaluate());
        QFETCH(QString, reason);
        QCOMPARE(settings.errorString(), included ? QStringLiteral("%1:2: cannot read '%2': %3").arg(main, path, reason)
                                                  : QStringLiteral("%1: cannot read the file: %2").arg(path, reason));
        QCOMPARE(settings.missingFiles(), included ? QStringList{path} : QStringList());
        QVERIFY(clock.elapsed() < 1000);
    }

    // Includes that could not be read, whether the evaluation fails or the script goes on.
    void missingFiles()
    {
        const QString main = write("missing/main.lua", "pcall(include, 'a.lua')\nx = 1\n");
        ICISettings settings(main);
        QVERIFY(settings.evaluate());
        QCOMPARE(settings.missingFiles(), QStringList{m_dir.filePath("missing/a.lua")});
        write("missing/main.lua", "pcall(include, 'sub/b.lua')\ninclude('a.lua')\n");
        QVERIFY(settings.reload() && !settings.evaluate());
        QCOMPARE(settings.missingFiles(), (QStringList{m_dir.filePath("missing/sub/b.lua"), m_dir.filePath("missing/a.lua")}));
        write("missing/a.lua", "y = 2\n");
        write("missing/main.lua", "include('a.lua')\n");
        QVERIFY(settings.reload() && settings.evaluate());
        QCOMPARE(settings.missingFiles(), QStringList());
    }

    void nativeFunctions()
    {
        const QString main = write("native/main.lua", "a = record('x', 2, true, { 1, 2 }, { k = 'v' })\n"
                                                      "include('other.lua')\nr = rich()\nx = fail(1)\n");
        const QString other = write("native/other.lua", "\n\nb = record()\n");
        int marker = 0;
        ICISettings settings(main);
        settings.createFunction("record", [](ICISettingsContext* call) { calls.append(*call); return call->args().value(0); }, &marker);
        settings.createFunction("rich", [](ICISettingsContext*) -> QVariant {
            return M{{"list", QStringList{"a", "b"}}, {"number", 7}, {"bytes", QByteArray("raw")}};
        });
        settings.createFunction("fail", [](ICISettingsContext* call) { call->setErrorMessage("fail expects exactly 2 arguments"); return QVariant(42); });
        QVERIFY(!settings.evaluate());
        QCOMPARE(settings.errorString(), main + ":4: fail expects exactly 2 arguments");
        QCOMPARE(calls.size(), 2);
        QCOMPARE(calls.at(0).args(), (QList<QVariant>{"x", 2LL, true, L{1LL, 2LL}, M{{"k", "v"}}}));
        QCOMPARE(calls.at(0).file() + ':' + QString::number(calls.at(0).line()), main + ":1");
        QCOMPARE(calls.at(0).userData(), &marker);
        QCOMPARE(calls.at(1).file() + ':' + QString::number(calls.at(1).line()), other + ":3");
        QVERIFY(calls.at(1).args().isEmpty());

        settings.createFunction("fail", nullptr); // calls to a removed function are ordinary errors
        QVERIFY(!settings.evaluate());
        QVERIFY(settings.errorString().endsWith("main.lua:4: attempt to call a nil value (global 'fail')"));
        write("native/main.lua", "a = record('x')\nr = rich()\n");
        QVERIFY(settings.reload() && settings.evaluate());
        QCOMPARE(settings.value("a"), "x");
        QCOMPARE(settings.value("r"), (M{{"list", L{"a", "b"}}, {"number", 7LL}, {"bytes", "raw"}}));
        QVERIFY(!settings.contains("record"));
    }

    void failedEvaluationKeepsTheLastGoodState()
    {
        const QString main = write("atomic/main.lua", "good = 1\ninclude('a.lua')\n");
        const QString part = write("atomic/a.lua", "part = 2\n");
        ICISettings settings(main);
        QVERIFY(settings.evaluate());
        write("atomic/main.lua", "good = 5\ninclude('b.lua')\nerror('broken')\n");
        write("atomic/b.lua", "other = 3\n");
        QVERIFY(settings.reload() && !settings.evaluate() && settings.hasError());
        QCOMPARE(settings.value("good"), 1LL);
        QCOMPARE(settings.keys(), (QStringList{"good", "part"}));
        QCOMPARE(settings.files(), (QStringList{main, part}));
        write("atomic/main.lua", "good = 6\n");
        QVERIFY(settings.reload() && settings.evaluate());
        QVERIFY(!settings.hasError() && settings.errorString().isEmpty());
        QCOMPARE(settings.keys(), QStringList{"good"});
    }

    // Every broken script ends in an error naming the file and line, and a sound script still works after it.
    void badInput()
    {
        write("cycle-a.lua", "include('cycle-b.lua')\n");
        write("cycle-b.lua", "include('cycle-a.lua')\n");
        write("broken.lua", "x = 1\ny oops\n");
        ICISettings sound(write("sound.lua", "fine = true\n"));
        const QString instructions = "instruction limit of 2000000 exceeded", memory = "memory limit of 16 MiB exceeded";
        // The script of bad.lua, and where and why it fails.
        const std::pair<const char*, QString> rows[] = {
            {"a = 1\nb = = 2\n", "bad.lua:2: unexpected symbol near '='"},
            {"a = 1\n\nb = nil + 1\n", "bad.lua:3: attempt to perform arithmetic on a nil value"},
            {"a = 'open\n", "bad.lua:1: unfinished string"}, {"error('stop here')\n", "bad.lua:1: stop here"},
            {"\nerror('bare', 0)\n", "bad.lua:2: bare"}, {"error({})\n", "bad.lua:1: error object is a table value"},
            {"x = 1\nwhile true do end\n", "bad.lua:2: " + instructions},
            {"while true do\n pcall(function() while true do end end)\nend\n", "bad.lua:2: " + instructions},
            {"local function f(n)\n return f(n + 1) + 1\nend\nf(1)\n", "bad.lua:2: " + memory},
            {"t = {}\nfor i = 1, 1e9 do\n t[i] = { i, i, i }\nend\n", "bad.lua:3: " + memory},
            {"t = {}\npcall(function() for i = 1, 1e9 do t[i] = {} end end)\nx = 1\n", "bad.lua:2: " + memory},
            {"a = 1\ns = string.rep('x', 1024 * 1024 * 1024)\n", "bad.lua:2: " + memory},
            {"s = 'x'\nwhile true do\n s = s .. s\nend\n", "bad.lua:3: " + memory},
            {"f = assert(load('\\27Lua\\84\\0'))\n", "bad.lua:1: attempt to load a binary chunk"},
            {"a = 1\ninclude('missing.lua')\n", "bad.lua:2: cannot read"},
            {"include('cycle-b.lua')\n", "cycle-a.lua:1: include cycle:"},
            {"include('broken.lua')\n", "broken.lua:2: syntax error near 'oops'"},
            {"\ninclude()\n", "bad.lua:2: include expects one file name"},
            {"a = 'ok'\nb = '\xE9t\xE9'\n", "bad.lua:2: not valid UTF-8"}, {"a = '\xC0\xAF'\n", "bad.lua:1: not valid UTF-8"},
            {"", "bad.lua:1: the file is empty"}, {" \n\t\n", "bad.lua:1: the file is empty"},
            {"t = {}\nt.self = t\n", "bad.lua: the value of 't.self' contains itself"},
            {"x = 1\nsetmetatable({}, { __gc = function() while true do end end })\n", "bad.lua:2: finalizers (__gc) are not available"},
            {"s = ('a'):rep(20000)\nx = s:find('.-.-.-.-b')\n", "bad.lua:2: pattern too complex for a subject of 20000 bytes"},
            {"s = ('a'):rep(20000)\nx = s:match('.-.-.-.-b', 1, true)\n", "bad.lua:2: pattern too complex for a subject of 20000 bytes"},
            {"s = ('a'):rep(20000)\nx = s:find(s .. 'b', 1, true)\n", "bad.lua:2: pattern too complex for a subject of 20000 bytes"},
            {"\nx = string.find(123456789012345678, ('.-'):rep(20) .. 'x')\n", "bad.lua:2: pattern too complex for a subject of 18 bytes"},
            {"for i = 1, 1e9 do\n local x = ('a'):rep(2000):find('a-b')\nend\n", "bad.lua:2: " + instructions},
            {"a, b = ('x'):rep(1 << 22), ('x'):rep(1 << 22)\nwhile true do local c = a < b end\n",
             "bad.lua:2: time limit of 1000 ms exceeded"},
            {"local t = setmetatable({}, { __index = function(t, k) return t[k] end })\nx = t.a\n", "bad.lua:1: stack overflow"},
            {"\nos.execute('true')\n", "bad.lua:2: attempt to index a nil value (global 'os')"},
            {"\nx = string.find()\n", "bad.lua:2: bad argument #1 to 'find' (string expected, got no value)"},
            {"x = utf8.len({})\n", "bad.lua:1: bad argument #1 to 'len' (string expected, got table)"},
            {"table.sort({ 2, 1 }, 1)\n", "bad.lua:1: bad argument #2 to 'sort' (function expected, got number)"},
            {"table.insert({}, 5, 1)\n", "bad.lua:1: bad argument #2 to 'insert' (position out of bounds)"},
            {"x = table.concat({ {} })\n", "bad.lua:1: invalid value (at index 1) in table for 'concat'"},
            // Library functions that would run long or take much in one call stop on their own checks.
            {"x = 1\nt = { table.unpack({}, 1, 1 << 40) }\n", "bad.lua:2: too many results to unpack"},
            {"s = ('x'):rep(1 << 21)\nt = { s:byte(1, -1) }\n", "bad.lua:2: string slice too long"},
            {"x = 1\ns = string.format('%0999999d', 1)\n", "bad.lua:2: invalid conversion"}};
        for (const auto& [script, expected] : rows) {
            ICISettings settings(write("bad.lua", script));
            settings.setInstructionLimit(2'000'000);
            settings.setMemoryLimit(16 * 1024 * 1024);
            settings.setTimeLimit(1000);
            QVERIFY2(!settings.evaluate() && settings.hasError() && settings.keys().isEmpty(), script);
            const QString error = settings.errorString();
            const qsizetype location = expected.indexOf(": ") + 2;
            QVERIFY2(error.startsWith(m_dir.filePath(expected.left(location))) && error.contains(expected.mid(location)),
                     qPrintable(error + " <> " + expected));
            QVERIFY(sound.evaluate() && sound.value("fine").toBool());
        }
    }

    // Library functions that run in C for a long time in one call, or in calls between which the
    // interpreter runs few instructions: each script ends on the time limit, at its second line.
    void timeLimitHolds_data()
    {
        QTest::addColumn<QByteArray>("script");

        // Small data, quick to build on a loaded machine: what matters is that one call, or the
        // calls between two hooks, run long.
        const auto row = [](const char* name, const char* script) { QTest::newRow(name) << QByteArray(script); };
        row("sort with a C comparator", "t = {} for i = 1, 1 << 14 do t[i] = {} end\nwhile true do table.sort(t, rawget) end\n");
        row("sort", "local t, sort = {}, table.sort for i = 1, 1 << 16 do t[i] = (i * 7919) % 65537 end\n"
                    "while true do sort(t) sort(t) sort(t) end\n");
        row("sort of long strings", "a, b = ('x'):rep(1 << 20), ('y'):rep(1 << 20)\n"
                                    "t = {} for i = 1, 64 do t[i] = i % 2 == 0 and a or b end while true do table.sort(t) end\n");
        row("gsub calling a C function", "s = ('x'):rep(1 << 20)\nwhile true do local r = s:gsub('.', string.upper) end\n");
        row("pattern matching", "s = ('a'):rep(5000)\nwhile true do local x = s:find('.-b') end\n");
        row("utf8.len", "local s, len = ('\xC3\xA9'):rep(1 << 20), utf8.len\nwhile true do len(s) len(s) len(s) end\n");
        row("string.rep of nothing", "x = 1\nwhile true do local s = string.rep('', 1 << 50) end\n");
        row("string.rep", "x = 1\nwhile true do local s = ('ab'):rep(1 << 21, ',') end\n");
        row("table.concat", "local t, concat = { ('x'):rep(1 << 16):byte(1, -1) }, table.concat\n"
                            "while true do concat(t) concat(t) concat(t) end\n");
        row("table.insert under a long length", "t = setmetatable({}, { __len = function() return 1 << 50 end })\ntable.insert(t, 1, 'x')\n");
        row("table.remove under a long length", "t = setmetatable({}, { __len = function() return 1 << 50 end })\ntable.remove(t, 1)\n");
        row("table.move of a long range", "t = {}\ntable.move(t, 1, 1 << 50, 2)\n");
        row("load of a long text", "s = ('x = 1 '):rep(1 << 18)\nwhile true do pcall(load, s) end\n");
    }

    void timeLimitHolds()
    {
        QFETCH(QByteArray, script);
        const QString path = write("slow.lua", script);
        ICISettings settings(path);
        settings.setInstructionLimit(0); // the clock alone stops these
        settings.setTimeLimit(200);
        QElapsedTimer clock;
        clock.start();
        QVERIFY(!settings.evaluate());
        const qint64 elapsed = clock.elapsed();
        QCOMPARE(settings.errorString(), path + ":2: time limit of 200 ms exceeded");
        QVERIFY2(elapsed < 1000, qPrintable(QString::number(elapsed) + " ms"));
    }

    // Work that library functions do in C counts against the instruction limit: a few hundred
    // instructions that walk, sort or shift a million elements each exceed a limit of a million.
    void libraryWorkIsCharged_data()
    {
        QTest::addColumn<QByteArray>("script");
        const auto row = [](const char* name, const char* loop) {
            QTest::newRow(name) << "s = ('\xC3\xA9'):rep(1 << 19) t = { s:byte(1, 1 << 16) }\n" + QByteArray(loop);
        };
        row("utf8.len", "for i = 1, 100 do local n = utf8.len(s) end\n");
        row("utf8.codepoint", "for i = 1, 300 do local c = utf8.codepoint(s, 1, 1 << 16) end\n");
        row("utf8.offset", "for i = 1, 100 do local o = utf8.offset(s, 1 << 18) end\n");
        row("utf8.codes", "for i = 1, 100 do local f = utf8.codes(s) end\n");
        row("table.sort", "for i = 1, 20 do table.sort(t, function(a, b) return a > b end) end\n");
        row("table.concat", "for i = 1, 100 do local c = table.concat(t) end\n");
        row("table.insert", "for i = 1, 100 do table.insert(t, 1, i) end\n");
        row("table.remove", "for i = 1, 100 do table.remove(t, 1) end\n");
        row("table.move", "for i = 1, 100 do table.move(t, 1, #t, 2) end\n");
    }

    void libraryWorkIsCharged()
    {
        QFETCH(QByteArray, script);
        const QString path = write("charged.lua", script);
        ICISettings settings(path);
        settings.setInstructionLimit(1'000'000);
        QVERIFY(!settings.evaluate());
        QCOMPARE(settings.errorString(), path + ":2: instruction limit of 1000000 exceeded");
    }

    // Settings made from values that the script references many times are built once for every
    // reference: the memory limit holds for them, in both directions, and the error says where.
    void valuesStayWithinTheMemoryLimit_data()
    {
        QTest::addColumn<QByteArray>("script");
        QTest::addColumn<QString>("expected"); // after the path of the script
        QTest::addColumn<bool>("given"); // a shared list given with setValue() too
        const QString memory = "memory limit of 16 MiB";
        QTest::newRow("a string referenced many times") << QByteArray("s = ('x'):rep(1 << 20)\nt = {} for i = 1, 4000 do t[i] = s end\n")
                                                        << ": at the end of the script, the value of 't' exceeds the " + memory << false;
        QTest::newRow("lists nested by reference") << QByteArray("t = {} for i = 1, 40 do t = { t, t } end\n")
                                                   << ": at the end of the script, the value of 't' exceeds the " + memory << false;
        QTest::newRow("maps nested by reference") << QByteArray("m = {} for i = 1, 40 do m = { a = m, b = m } end\n")
                                                  << ": at the end of the script, the value of 'm' exceeds the " + memory << false;
        QTest::newRow("argument of a native function") << QByteArray("t = {} for i = 1, 40 do t = { t, t } end\nrecord(1, t)\n")
                                                       << ":2: record: the value of 'argument 2' exceeds the " + memory << false;
        QTest::newRow("result of a native function") << QByteArray("\nx = shared()\n") << ":2: " + memory + " exceeded" << false;
        QTest::newRow("value given before") << QByteArray("x = 1\n") << ": before the script ran: " + memory + " exceeded" << true;
    }

    void valuesStayWithinTheMemoryLimit()
    {
        QFETCH(QByteArray, script);
        const QString path = write("shared.lua", script);
        ICISettings settings(path);
        settings.setMemoryLimit(16 * 1024 * 1024);
        settings.setTimeLimit(0); // however slow the machine
        settings.createFunction("record", [](ICISettingsContext*) { return QVariant(); });
        settings.createFunction("shared", [](ICISettingsContext*) { return sharedList(40); });
        QFETCH(bool, given);
        if (given)
            settings.setValue("given", sharedList(40));
        QVERIFY(!settings.evaluate());
        QTEST(settings.errorString().mid(path.size()), "expected");
        settings.setValue("given", QVariant());
        write("shared.lua", "fine = true\n"); // and the engine still works
        QVERIFY(settings.reload() && settings.evaluate());
    }

    // Without a memory limit, the time limit still ends building settings from shared values.
    void valuesStayWithinTheTimeLimit()
    {
        const QString path = write("shared.lua", "t = {} for i = 1, 40 do t = { t, t } end\n");
        ICISettings settings(path);
        settings.setMemoryLimit(0);
        settings.setTimeLimit(200);
        QElapsedTimer clock;
        clock.start();
        QVERIFY(!settings.evaluate());
        QCOMPARE(settings.errorString(), path + ": at the end of the script, the value of 't' exceeds the time limit of 200 ms");
        QVERIFY2(clock.elapsed() < 1000, qPrintable(QString::number(clock.elapsed()) + " ms"));
    }

    // A parser that runs out of memory stops at a line of the file it reads, an included one too.
    void parserOutOfMemoryNamesTheLine()
    {
        QByteArray constants = "t = {\n";
        for (int i = 0; i < 300'000; ++i)
            constants += "'s" + QByteArray::number(i) + "',\n";
        const QString included = write("big.lua", constants + "}\n");
        for (const QString& main : {included, write("includes.lua", "x = 1\ninclude('big.lua')\n")}) {
            ICISettings settings(main);
            settings.setMemoryLimit(16 * 1024 * 1024);
            QVERIFY(!settings.evaluate());
            const QRegularExpressionMatch match = QRegularExpression("^(.*):(\\d+): memory limit of 16 MiB exceeded$")
                                                      .match(settings.errorString());
            QVERIFY2(match.hasMatch(), qPrintable(settings.errorString()));
            QCOMPARE(match.captured(1), included);
            QVERIFY(match.captured(2).toInt() > 1000);
        }
    }

    void defaultLimitsStopRunawayScripts()
    {
        const std::pair<const char*, const char*> rows[] = {
            {"while true do end\n", ":1: instruction limit of 50000000 exceeded"},
            {"local function f(n)\n return f(n + 1) + 1\nend\nf(1)\n", ":2: stack overflow"},
            {"s = string.rep('x', 1 << 30)\n", ":1: memory limit of 128 MiB exceeded"}};
        for (const auto& [script, error] : rows) {
            ICISettings settings(write("runaway.lua", script));
            QVERIFY(!settings.evaluate());
            QVERIFY2(settings.errorString().endsWith(QString("runaway.lua") + error), qPrintable(settings.errorString()));
        }
    }
};

QTEST_GUILESS_MAIN(IciSettingsTest)
#include "tst_icisettings.moc"
