#include <libupdater/IciSettingsProvider.h>
#include <libupdater/MemorySettingsProvider.h>
#include <libupdater/SettingsAttributes.h>
#include <libupdater/UpdaterSettingsManager.h>

#include <basix/AbstractLoggerOutput.h>
#include <basix/ICISettings.h>
#include <basix/Logger.h>

#include <QtCore/QFileSystemWatcher>
#include <QtCore/QMutex>
#include <QtCore/QSaveFile>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <memory>
#include <utility>

using namespace tvl::updater;

namespace {

const QString canNotReload = QStringLiteral("4 onFileChanged: can't reload settings");

// The provider's records, as "<level> <function>: <message>".
class RecordingOutput : public tvl::AbstractLoggerOutput
{
public:
    void writeLogHeader() override {}
    void write(const QString& message, const QString& file, const QString& function, const QString&, int,
               tvl::Logger::Level level, const QDateTime&, int) override
    {
        if (file != QLatin1String("libupdater/UpdaterSettingsManager"))
            return;
        QMutexLocker locker(&m_mutex);
        m_lines.append(QStringLiteral("%1 %2: %3").arg(int(level)).arg(function, message));
    }

    QStringList take()
    {
        tvl::Logger::instance()->flush();
        QMutexLocker locker(&m_mutex);
        return std::exchange(m_lines, {});
    }

private:
    QMutex m_mutex;
    QStringList m_lines;
};

QString describe(const QVariant& value)
{
    if (!value.isValid())
        return QStringLiteral("-");
    if (value.typeId() == QMetaType::QVariantList)
        return QLatin1Char('(') + value.toStringList().join(QStringLiteral(", ")) + QLatin1Char(')');
    return value.toString();
}

// The reports received so far as "key: previous -> new", "-" for an absent value; clears them.
QStringList takeChanges(QSignalSpy& spy)
{
    QStringList changes;
    for (const QList<QVariant>& report : std::as_const(spy)) {
        changes.append(QStringLiteral("%1: %2 -> %3")
                           .arg(report.at(0).toString(), describe(report.at(1)), describe(report.at(2))));
    }
    spy.clear();
    return changes;
}

bool writeInPlace(const QString& path, const QByteArray& text)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(text) == text.size();
}

bool saveByRename(const QString& path, const QByteArray& text)
{
    QSaveFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(text) == text.size() && file.commit();
}

bool waitFor(const std::function<bool()>& condition)
{
    return QTest::qWaitFor(condition, 5000);
}

// A script file with its engine and provider, and spies on the provider's reports and on the
// watcher (whose signal reaches the provider first, as it was connected first).
struct Script
{
    explicit Script(const QString& path)
        : path(path)
        , settings(path)
        , provider(&settings, nullptr)
        , changes(&provider, &ISettingsProvider::settingChanged)
        , watcher(provider.findChild<QFileSystemWatcher*>())
        , watcherSignals(watcher, SIGNAL(fileChanged(QString)))
        , evaluated(provider.evaluate())
    {
    }

    QStringList watched() const
    {
        QStringList files = watcher->files();
        files.sort();
        return files;
    }

    // Waits until the watcher reported a change and the provider has handled it.
    bool waitForReload()
    {
        const bool seen = waitFor([this] { return !watcherSignals.isEmpty(); });
        watcherSignals.clear();
        return seen;
    }

    bool waitForChanges()
    {
        return waitFor([this] { return !changes.isEmpty(); });
    }

    QString path;
    tvl::ICISettings settings;
    IciSettingsProvider provider;
    QSignalSpy changes;
    QFileSystemWatcher* watcher;
    QSignalSpy watcherSignals;
    bool evaluated;
};

} // namespace

class tst_IciSettingsProvider : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();

    void editedInPlace_data();
    void editedInPlace();
    void replacedByRename();
    void brokenThenFixed_data();
    void brokenThenFixed();
    void interruptedSave_data();
    void interruptedSave();
    void includedFiles();
    void update();
    void throughManager();

private:
    QString file(const QString& name) const { return m_directory->filePath(name); }
    QStringList waitForLog(const QString& line);

    std::unique_ptr<QTemporaryDir> m_directory;
    RecordingOutput m_output;
};

void tst_IciSettingsProvider::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    tvl::Logger::instance()->addOutput(&m_output);
}

void tst_IciSettingsProvider::cleanupTestCase()
{
    tvl::Logger::instance()->removeOutput(&m_output);
}

void tst_IciSettingsProvider::init()
{
    m_directory = std::make_unique<QTemporaryDir>();
    QVERIFY(m_directory->isValid());
    m_output.take();
}

// Every record up to and including `line`, once it has been logged; empty if it never is.
QStringList tst_IciSettingsProvider::waitForLog(const QString& line)
{
    QStringList lines;
    if (!waitFor([&] {
            lines += m_output.take();
            return lines.contains(line);
        })) {
        return QStringList();
    }
    return lines;
}

void tst_IciSettingsProvider::editedInPlace_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("after");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("one value of several") << QByteArray("a = 1\nb = 'x'\nc = true\n")
                                          << QByteArray("a = 1\nb = 'y'\nc = true\n") << QStringList{"b: x -> y"};
    QTest::newRow("a comment only") << QByteArray("a = 1\n") << QByteArray("-- a comment\na = 1\n") << QStringList{};
    // New and changed keys in the engine's order, then removed ones.
    QTest::newRow("added, changed and removed")
        << QByteArray("a = 1\nb = 2\nc = 3\n") << QByteArray("d = 4\nb = 5\naa = 0\na = 1\n")
        << QStringList{"aa: - -> 0", "b: 2 -> 5", "d: - -> 4", "c: 3 -> -"};
    // "a-b" sorts before "a.x" as a key, after it as a path of names.
    QTest::newRow("removed keys in key order")
        << QByteArray("a = { x = 1 }\n_ENV['a-b'] = 2\nc = 3\n") << QByteArray("z = 0\n")
        << QStringList{"z: - -> 0", "a-b: 2 -> -", "a.x: 1 -> -", "c: 3 -> -"};
    QTest::newRow("table turned into a value") << QByteArray("data = { x = 1 }\n") << QByteArray("data = 5\n")
                                               << QStringList{"data: - -> 5", "data.x: 1 -> -"};
}

void tst_IciSettingsProvider::editedInPlace()
{
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, after);
    QFETCH(QStringList, expected);

    QVERIFY(writeInPlace(file(QStringLiteral("main.lua")), before));
    Script script(file(QStringLiteral("main.lua")));
    QVERIFY(script.evaluated);

    QVERIFY(writeInPlace(script.path, after));
    QVERIFY(script.waitForReload());
    QCOMPARE(takeChanges(script.changes), expected);
    QCOMPARE(m_output.take(), QStringList());
}

void tst_IciSettingsProvider::replacedByRename()
{
    QVERIFY(writeInPlace(file(QStringLiteral("main.lua")), "a = 1\nb = 1\n"));
    Script script(file(QStringLiteral("main.lua")));
    QVERIFY(script.evaluated);

    QVERIFY(saveByRename(script.path, "a = 2\nb = 1\n"));
    QVERIFY(script.waitForChanges());
    QCOMPARE(takeChanges(script.changes), QStringList{"a: 1 -> 2"});
    QCOMPARE(script.watched(), QStringList{script.path});

    QVERIFY(saveByRename(script.path, "a = 3\nb = 1\n"));
    QVERIFY(script.waitForChanges());
    QCOMPARE(takeChanges(script.changes), QStringList{"a: 2 -> 3"});

    QVERIFY(writeInPlace(script.path, "a = 3\nb = 2\n"));
    QVERIFY(script.waitForChanges());
    QCOMPARE(takeChanges(script.changes), QStringList{"b: 1 -> 2"});
}

void tst_IciSettingsProvider::brokenThenFixed_data()
{
    QTest::addColumn<bool>("byRename");
    QTest::newRow("edited in place") << false;
    QTest::newRow("replaced by rename") << true;
}

void tst_IciSettingsProvider::brokenThenFixed()
{
    QFETCH(bool, byRename);
    const auto save = byRename ? saveByRename : writeInPlace;

    QVERIFY(writeInPlace(file(QStringLiteral("main.lua")), "a = 1\nb = 2\n"));
    Script script(file(QStringLiteral("main.lua")));
    QVERIFY(script.evaluated);

    QVERIFY(save(script.path, "a = 3\nb = = 2\n"));
    const QStringList logs = waitForLog(canNotReload);
    const QString error = script.settings.errorString();
    QVERIFY2(error.startsWith(script.path + QStringLiteral(":2: ")), qPrintable(error));
    QCOMPARE(logs, (QStringList{QStringLiteral("5 evaluate: ") + error, canNotReload}));
    QCOMPARE(takeChanges(script.changes), QStringList());
    QCOMPARE(script.provider.getSetting(QStringLiteral("a")), QVariant(1));

    // The differences are taken against what the engine still held: the last good script.
    QVERIFY(save(script.path, "a = 3\nb = 2\nc = 1\n"));
    QVERIFY(script.waitForChanges());
    QCOMPARE(takeChanges(script.changes), (QStringList{"a: 1 -> 3", "c: - -> 1"}));
    QCOMPARE(script.watched(), QStringList{script.path});
}

void tst_IciSettingsProvider::interruptedSave_data()
{
    // How an editor's save begins; it then writes the file in place.
    QTest::addColumn<QString>("start");
    QTest::addColumn<QStringList>("logs");

    const QString emptyFile = QStringLiteral("5 evaluate: %1:1: the file is empty");
    QTest::newRow("deleted") << "delete" << QStringList{canNotReload};
    QTest::newRow("truncated in place") << "truncate" << QStringList{emptyFile, canNotReload};
    QTest::newRow("replaced by an empty file") << "empty by rename" << QStringList{emptyFile, canNotReload};
    QTest::newRow("replaced by a blank file") << "blank by rename" << QStringList{emptyFile, canNotReload};
}

void tst_IciSettingsProvider::interruptedSave()
{
    QFETCH(QString, start);
    QFETCH(QStringList, logs);

    QVERIFY(writeInPlace(file(QStringLiteral("main.lua")), "a = 1\n"));
    Script script(file(QStringLiteral("main.lua")));
    QVERIFY(script.evaluated);

    if (start == QLatin1String("delete"))
        QVERIFY(QFile::remove(script.path));
    else if (start == QLatin1String("truncate"))
        QVERIFY(writeInPlace(script.path, QByteArray()));
    else
        QVERIFY(saveByRename(script.path, start.startsWith(QLatin1String("blank")) ? " \n\t\n" : ""));
    QCOMPARE(waitForLog(canNotReload), logs.replaceInStrings(QStringLiteral("%1"), script.path));
    QCOMPARE(script.provider.getSetting(QStringLiteral("a")), QVariant(1));

    QVERIFY(writeInPlace(script.path, "a = 2\n"));
    QVERIFY(script.waitForChanges());
    QCOMPARE(takeChanges(script.changes), QStringList{"a: 1 -> 2"});
    QCOMPARE(script.watched(), QStringList{script.path});
    QCOMPARE(script.watcher->directories(), QStringList());

    QVERIFY(writeInPlace(script.path, "a = 3\n"));
    QVERIFY(script.waitForChanges());
    QCOMPARE(takeChanges(script.changes), QStringList{"a: 2 -> 3"});
}

void tst_IciSettingsProvider::includedFiles()
{
    const QString one = file(QStringLiteral("one.lua"));
    const QString two = file(QStringLiteral("two.lua"));
    QVERIFY(writeInPlace(file(QStringLiteral("main.lua")), "a = 1\n"));
    Script script(file(QStringLiteral("main.lua")));
    QVERIFY(script.evaluated);
    QCOMPARE(script.watched(), QStringList{script.path});

    QVERIFY(writeInPlace(one, "b = 2\n"));
    QVERIFY(writeInPlace(script.path, "include('one.lua')\na = 1\n"));
    QVERIFY(script.waitForChanges());
    QCOMPARE(takeChanges(script.changes), QStringList{"b: - -> 2"});
    QCOMPARE(script.watched(), (QStringList{script.path, one}));

    QVERIFY(saveByRename(one, "b = 3\n"));
    QVERIFY(script.waitForChanges());
    QCOMPARE(takeChanges(script.changes), QStringList{"b: 2 -> 3"});

    QVERIFY(writeInPlace(two, "c = 4\n"));
    QVERIFY(writeInPlace(script.path, "include('two.lua')\na = 1\n"));
    QVERIFY(script.waitForChanges());
    QCOMPARE(takeChanges(script.changes), (QStringList{"c: - -> 4", "b: 3 -> -"}));
    QCOMPARE(script.watched(), (QStringList{script.path, two}));

    QVERIFY(writeInPlace(two, "c = 5\n"));
    QVERIFY(script.waitForChanges());
    QCOMPARE(takeChanges(script.changes), QStringList{"c: 4 -> 5"});
}

void tst_IciSettingsProvider::update()
{
    QVERIFY(writeInPlace(file(QStringLiteral("main.lua")),
                         "base = base or 1\n"
                         "derived = { value = base * 2 }\n"
                         "if base == 13 then error('unlucky') end\n"));
    Script script(file(QStringLiteral("main.lua")));
    QVERIFY(script.evaluated);
    QCOMPARE(script.provider.getSetting(QStringLiteral("derived.value")), QVariant(2));

    script.provider.update(QStringLiteral("base"), 5);
    QCOMPARE(script.provider.getSetting(QStringLiteral("derived.value")), QVariant(10));
    QCOMPARE(script.provider.keys(), (QStringList{"base", "derived.value"}));
    QCOMPARE(m_output.take(), QStringList());

    // A failing evaluation keeps the variable that was set, and the last good results.
    script.provider.update(QStringLiteral("base"), 13);
    const QString error = script.settings.errorString();
    QVERIFY2(error.startsWith(script.path + QStringLiteral(":3:")) && error.contains(QLatin1String("unlucky")),
             qPrintable(error));
    QCOMPARE(m_output.take(), QStringList{QStringLiteral("5 evaluate: ") + error});
    QCOMPARE(script.provider.getSetting(QStringLiteral("base")), QVariant(13));
    QCOMPARE(script.provider.getSetting(QStringLiteral("derived.value")), QVariant(10));
    QCOMPARE(script.changes.size(), 0);
}

void tst_IciSettingsProvider::throughManager()
{
    QVERIFY(writeInPlace(file(QStringLiteral("main.lua")), "a = 1\nb = 2\nbase = base or 1\nderived = base * 2\n"));
    Script script(file(QStringLiteral("main.lua")));
    QVERIFY(script.evaluated);
    MemorySettingsProvider runtime(nullptr);
    UpdaterSettingsManager manager;
    manager.addProvider(&runtime);
    manager.addProvider(&script.provider);
    QSignalSpy managerChanges(&manager, &ISettingsManager::settingChanged);

    // A write through the manager reaches the script, which recomputes, and reports nothing.
    manager.setSetting(QStringLiteral("base"), 4, false, false);
    QCOMPARE(manager.getSetting(QStringLiteral("derived"), AllScopes), QVariant(8));
    QCOMPARE(script.changes.size(), 0);

    // b already reads 3 through the runtime layer, so only a is announced by the manager.
    runtime.setSetting(QStringLiteral("b"), 3);
    QVERIFY(saveByRename(script.path, "a = 5\nb = 3\nbase = base or 1\nderived = base * 2\n"));
    QVERIFY(waitFor([&] { return !managerChanges.isEmpty(); }));
    QCOMPARE(takeChanges(script.changes), (QStringList{"a: 1 -> 5", "b: 2 -> 3"}));
    QCOMPARE(managerChanges.size(), 1);
    QCOMPARE(managerChanges.first(), (QList<QVariant>{QStringLiteral("a"), 5}));
    QCOMPARE(manager.getSetting(QStringLiteral("derived"), AllScopes), QVariant(8));
}

QTEST_GUILESS_MAIN(tst_IciSettingsProvider)

#include "tst_icisettingsprovider.moc"
