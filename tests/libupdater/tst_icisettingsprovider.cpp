#include <libupdater/IciSettingsProvider.h>
#include <libupdater/UpdaterSettingsManager.h>

#include <basix/ICISettings.h>

#include <LogCapture.h>
#include <TestSupport.h>

#include <QtCore/QFileSystemWatcher>
#include <QtCore/QSaveFile>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

using namespace tvl::updater;

namespace {

// A change to a file of the script, and the reports ("key: previous -> new", "-" for nothing) or
// records ("<level> <message>", "%1" for the main file's path, "%2" for its directory) it must bring.
struct Step
{
    enum How { Write, Rename, Delete, Directory /* in the file's place */, Put /* a file not read yet: no reload */ } how;
    QByteArray text;
    QStringList expected;
    const char* file = "main.lua";
};
using Steps = QList<Step>;

// The provider's records carry the source name of the settings manager.
const char* const source = "libupdater/UpdaterSettingsManager";
const QString canNotReload = "4 can't reload settings";

QString describe(const QVariant& value)
{
    return value.isValid() ? value.toString() : "-";
}

} // namespace

class tst_IciSettingsProvider : public QObject
{
    Q_OBJECT

private slots:
    void edits_data()
    {
        QTest::addColumn<QByteArray>("initial");
        QTest::addColumn<Steps>("steps");

        using S = Step;
        const auto row = [](const char* name, const char* initial, const Steps& steps) {
            QTest::newRow(name) << QByteArray(initial) << steps;
        };
        // New and changed keys in the engine's order, then removed ones in key order ("a-b" sorts
        // before "a.x" as a key, after it as a path of names).
        row("added, changed and removed", "a = { x = 1 }\n_ENV['a-b'] = 2\nb = 2\nc = 3\n",
            {{S::Write, "d = 4\nb = 5\naa = 0\n",
              {"aa: - -> 0", "b: 2 -> 5", "d: - -> 4", "a-b: 2 -> -", "a.x: 1 -> -", "c: 3 -> -"}}});
        row("replaced by rename", "a = 1\nb = 1\n",
            {{S::Rename, "a = 2\nb = 1\n", {"a: 1 -> 2"}}, {S::Rename, "a = 3\nb = 1\n", {"a: 2 -> 3"}},
             {S::Write, "a = 3\nb = 2\n", {"b: 1 -> 2"}}});
        // The differences are taken against what the engine still held: the last good script.
        for (const S::How how : {S::Write, S::Rename}) {
            row(how == S::Write ? "broken then fixed in place" : "broken then fixed by rename", "a = 1\nb = 2\n",
                {{how, "a = 3\nb = = 2\n", {"5 %1:2: unexpected symbol near '='", canNotReload}},
                 {how, "a = 3\nb = 2\nc = 1\n", {"a: 1 -> 3", "c: - -> 1"}}});
        }
        // A save that begins by deleting or emptying the file, then writes it in place.
        const Steps fixed{{S::Write, "a = 2\n", {"a: 1 -> 2"}}, {S::Write, "a = 3\n", {"a: 2 -> 3"}}};
        const QStringList emptyFile{"5 %1:1: the file is empty", canNotReload};
        row("deleted", "a = 1\n", Steps{{S::Delete, "", {canNotReload}}} + fixed);
        row("truncated in place", "a = 1\n", Steps{{S::Write, "", emptyFile}} + fixed);
        row("replaced by an empty file", "a = 1\n", Steps{{S::Rename, "", emptyFile}} + fixed);
        row("included files", "a = 1\n",
            {{S::Put, "b = 2\n", {}, "one.lua"},
             {S::Write, "include('one.lua')\na = 1\n", {"b: - -> 2"}},
             {S::Rename, "b = 3\n", {"b: 2 -> 3"}, "one.lua"},
             {S::Put, "c = 4\n", {}, "two.lua"},
             {S::Write, "include('two.lua')\na = 1\n", {"c: - -> 4", "b: 3 -> -"}},
             {S::Write, "c = 5\n", {"c: 4 -> 5"}, "two.lua"}});
        row("replaced by a directory and back", "a = 1\n",
            {{S::Directory, "", {canNotReload}}, {S::Write, "a = 2\n", {"a: 1 -> 2"}}, {S::Write, "a = 3\n", {"a: 2 -> 3"}}});
        // Includes that could not be read are taken once they are there.
        row("optional include created", "pcall(include, 'opt.lua')\na = 1\n",
            {{S::Write, "b = 2\n", {"b: - -> 2"}, "opt.lua"}, {S::Write, "b = 3\n", {"b: 2 -> 3"}, "opt.lua"}});
        row("optional include created with its directory", "pcall(include, 'sub/opt.lua')\na = 1\n",
            {{S::Write, "b = 2\n", {"b: - -> 2"}, "sub/opt.lua"}});
        row("missing include created", "a = 1\n",
            {{S::Write, "include('inc.lua')\na = 2\n", {"5 %1:1: cannot read '%2/inc.lua': No such file or directory", canNotReload}},
             {S::Write, "b = 1\n", {"a: 1 -> 2", "b: - -> 1"}, "inc.lua"}});
    }

    void edits()
    {
        QFETCH(QByteArray, initial);
        QFETCH(Steps, steps);

        QTemporaryDir dir;
        const QString main = testsupport::writeFile(dir.filePath("main.lua"), initial);
        tvl::ICISettings settings(main);
        IciSettingsProvider provider(&settings, nullptr);
        QVERIFY(provider.evaluate());
        QSignalSpy changes(&provider, &ISettingsProvider::settingChanged);
        LogCapture log;

        for (const Step& step : steps) {
            const QString path = dir.filePath(step.file);
            QSaveFile replacement(path);
            if (step.how == Step::Delete || step.how == Step::Directory)
                QVERIFY(QFile::remove(path) && (step.how == Step::Delete || QDir().mkpath(path)));
            else if (step.how == Step::Rename)
                QVERIFY(replacement.open(QIODevice::WriteOnly) && replacement.write(step.text) >= 0
                        && replacement.commit());
            else if (QDir(path).exists())
                QVERIFY(QDir(path).removeRecursively() && !testsupport::writeFile(path, step.text).isEmpty());
            else
                testsupport::writeFile(path, step.text);
            if (step.how == Step::Put)
                continue;
            const QStringList expected = QStringList(step.expected).replaceInStrings("%1", main).replaceInStrings("%2", dir.path());
            QStringList seen;
            const auto take = [&] {
                for (const QVariantList& report : std::as_const(changes))
                    seen << report[0].toString() + ": " + describe(report[1]) + " -> " + describe(report[2]);
                changes.clear();
                return seen += log.lines(source);
            };
            QTRY_COMPARE_WITH_TIMEOUT(take(), expected, 5000);
        }
        // Exactly the files of the script are watched, and no directory once they are all back.
        auto* watcher = provider.findChild<QFileSystemWatcher*>();
        QStringList watched = watcher->files(), files = settings.files();
        watched.sort();
        files.sort();
        QCOMPARE(watched, files);
        QCOMPARE(watcher->directories(), QStringList());
    }

    // A write anywhere in the stack reaches the script, which computes again without reporting;
    // a failing evaluation keeps the value that was set, and the last good results.
    void update()
    {
        QTemporaryDir dir;
        const QString main = testsupport::writeFile(dir.filePath("main.lua"), "base = base or 1\nderived = base * 2\n"
                                                                              "if base == 13 then error('no') end\n");
        tvl::ICISettings settings(main);
        IciSettingsProvider provider(&settings, nullptr);
        QVERIFY(provider.evaluate());
        UpdaterSettingsManager manager;
        manager.addProvider(&provider);
        QSignalSpy changes(&provider, &ISettingsProvider::settingChanged);
        LogCapture log;
        manager.setSetting("base", 4, false, false);
        QCOMPARE(provider.getSetting("derived"), QVariant(8));
        manager.setSetting("base", 13, false, false);
        QCOMPARE(provider.keys(), (QStringList{"base", "derived"}));
        QCOMPARE(provider.getSetting("base"), QVariant(13));
        QCOMPARE(provider.getSetting("derived"), QVariant(8));
        QCOMPARE(log.lines(source), QStringList{"5 " + main + ":3: no"});
        QCOMPARE(changes.size(), 0);
    }
};

QTEST_GUILESS_MAIN(tst_IciSettingsProvider)
#include "tst_icisettingsprovider.moc"
