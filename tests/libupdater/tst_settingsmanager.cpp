#include <libupdater/IniSettingsProvider.h>
#include <libupdater/MemorySettingsProvider.h>
#include <libupdater/UpdaterSettingsManager.h>

#include <basix/AbstractLoggerOutput.h>
#include <basix/Logger.h>

#include <QtCore/QProcess>
#include <QtCore/QSettings>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <functional>
#include <utility>

using namespace tvl::updater;

namespace {

QString s(const char* text)
{
    return QString::fromUtf8(text);
}

class RecordOutput : public tvl::AbstractLoggerOutput
{
public:
    void writeLogHeader() override {}
    void write(const QString& message, const QString& file, const QString& function, const QString&,
               int, tvl::Logger::Level level, const QDateTime&, int) override
    {
        if (file == QLatin1String("libupdater/UpdaterSettingsManager"))
            records << QStringLiteral("%1 %2: %3").arg(level).arg(function, message);
    }
    QStringList records; // read after Logger::flush() only
};

// A memory provider that notes every update(), save() and clear() in a shared journal and
// may run a hook from there, the way a provider's own slots could change the manager.
class JournalProvider : public MemorySettingsProvider
{
public:
    JournalProvider(const QString& name, SettingsProviderType type, QStringList* journal)
        : MemorySettingsProvider(nullptr, type)
        , m_name(name)
        , m_journal(journal)
    {
    }

    std::function<void()> hook;

    void update(const QString& key, const QVariant& value) override
    {
        note(QStringLiteral("update %1=%2").arg(key, value.toString()));
    }
    void save() override { note(QStringLiteral("save")); }
    void clear() override { note(QStringLiteral("clear")); }

private:
    void note(const QString& what)
    {
        m_journal->append(m_name + QLatin1Char(' ') + what);
        if (hook)
            std::exchange(hook, nullptr)();
    }

    const QString m_name;
    QStringList* const m_journal;
};

// Answers "k" itself, whatever the providers hold.
class OverridingManager : public UpdaterSettingsManager
{
public:
    QVariant getSetting(const QString& key, SettingsAttributes attributes) const override
    {
        return key == QLatin1String("k") ? QVariant(s("fixed"))
                                         : UpdaterSettingsManager::getSetting(key, attributes);
    }
};

// What a new process finds in an INI file that QSettings wrote: QSettings keeps the values it
// wrote cached per path within a process, so the file is read back under a new name.
QString iniFile(const QTemporaryDir& dir, const QVariantMap& entries)
{
    static int serial = 0;
    const QString written = dir.filePath(QStringLiteral("written%1.ini").arg(++serial));
    {
        QSettings settings(written, QSettings::IniFormat);
        for (auto entry = entries.constBegin(); entry != entries.constEnd(); ++entry)
            settings.setValue(entry.key(), entry.value());
    }
    // Without entries QSettings writes no file at all, which reads the same.
    const QString fresh = dir.filePath(QStringLiteral("fresh%1.ini").arg(serial));
    if (QFile::exists(written) && !QFile::copy(written, fresh))
        qFatal("cannot copy %s", qPrintable(written));
    return fresh;
}

// The helper's lines, "get <key>" / "cmd <key>" / "keys" mapped to the rest of the line.
QMap<QString, QString> runHelper(const QStringList& arguments, const QString& iniPath,
                                 const QStringList& keys)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("SETTINGS_HELPER_INI"), iniPath);
    environment.insert(QStringLiteral("SETTINGS_HELPER_KEYS"), keys.join(QLatin1Char(',')));
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(QStringLiteral(SETTINGSMANAGER_HELPER), arguments);
    QMap<QString, QString> lines;
    if (!process.waitForFinished(60'000) || process.exitStatus() != QProcess::NormalExit
        || process.exitCode() != 0) {
        process.kill();
        return lines;
    }
    const QStringList output =
        QString::fromUtf8(process.readAllStandardOutput()).split(QLatin1Char('\n'));
    for (const QString& line : output) {
        const bool keyed = !line.startsWith(QLatin1String("keys "));
        const qsizetype split = keyed
            ? line.indexOf(QLatin1Char(' '), line.indexOf(QLatin1Char(' ')) + 1)
            : line.indexOf(QLatin1Char(' '));
        if (split > 0)
            lines.insert(line.left(split), line.mid(split + 1));
    }
    return lines;
}

} // namespace

class TestSettingsManager : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();

    void stack_data();
    void stack();
    void keysOfTheStack();
    void scopes_data();
    void scopes();
    void trustedUrlOnly_data();
    void trustedUrlOnly();

    void setSetting_data();
    void setSetting();
    void virtualGetSettingDecides();
    void providerLoops_data();
    void providerLoops();

    void changeReports_data();
    void changeReports();
    void providerAddedTwice();
    void removedProvider();

private:
    QStringList logRecords();

    RecordOutput m_log;
    QTemporaryDir m_dir;
};

void TestSettingsManager::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    QVERIFY(m_dir.isValid());
    tvl::Logger::instance()->addOutput(&m_log);
}

void TestSettingsManager::cleanupTestCase()
{
    tvl::Logger::instance()->removeOutput(&m_log);
}

void TestSettingsManager::init()
{
    tvl::Logger::instance()->flush();
    m_log.records.clear();
}

QStringList TestSettingsManager::logRecords()
{
    tvl::Logger::instance()->flush();
    return m_log.records;
}

// The helper's runtime layer holds rt = "runtime", nulled = a null string and emptied = an
// empty string; its script layer holds "ici" under all, rt, nulled, emptied and ini. A "get"
// row reads the whole stack, a "cmd" row the command-line provider alone, after the helper
// has written to it and cleared it.
void TestSettingsManager::stack_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QVariantMap>("ini");
    QTest::addColumn<QString>("read");
    QTest::addColumn<QString>("expected");

    const QVariantMap iniAll{{s("all"), s("ini")}};

    QTest::newRow("runtime hides the command line")
        << QStringList{s("--rt=cmd")} << QVariantMap{{s("rt"), s("ini")}} << s("get rt")
        << s("string:runtime");
    QTest::newRow("command line hides the file")
        << QStringList{s("--all=cmd")} << iniAll << s("get all") << s("string:cmd");
    QTest::newRow("file hides the script")
        << QStringList() << iniAll << s("get all") << s("string:ini");
    QTest::newRow("script last") << QStringList() << QVariantMap() << s("get all")
                                 << s("string:ici");
    QTest::newRow("absent everywhere")
        << QStringList{s("--other=1")} << iniAll << s("get missing") << s("invalid");
    QTest::newRow("null runtime string lets the command line through")
        << QStringList{s("--nulled=cmd")} << QVariantMap() << s("get nulled") << s("string:cmd");
    QTest::newRow("null runtime string lets the file through")
        << QStringList() << QVariantMap{{s("nulled"), s("ini")}} << s("get nulled")
        << s("string:ini");
    QTest::newRow("empty runtime string hides the command line")
        << QStringList{s("--emptied=cmd")} << QVariantMap() << s("get emptied") << s("string:");
    QTest::newRow("empty command-line value hides the file")
        << QStringList{s("--all=")} << iniAll << s("get all") << s("string:");
    QTest::newRow("switch without a value is absent")
        << QStringList{s("--all")} << iniAll << s("get all") << s("string:ini");
    QTest::newRow("file number reads as a string")
        << QStringList() << QVariantMap{{s("display/width"), 800}} << s("get display.width")
        << s("string:800");
    QTest::newRow("dotted command-line option")
        << QStringList{s("--display.width=1024")} << QVariantMap{{s("display/width"), 800}}
        << s("get display.width") << s("string:1024");

    QTest::newRow("provider: value")
        << QStringList{s("--lang=fr")} << QVariantMap() << s("cmd lang") << s("string:fr");
    QTest::newRow("provider: empty value")
        << QStringList{s("--lang=")} << QVariantMap() << s("cmd lang") << s("string:");
    QTest::newRow("provider: switch")
        << QStringList{s("--lang")} << QVariantMap() << s("cmd lang") << s("invalid");
    QTest::newRow("provider: absent")
        << QStringList{s("--other=1")} << QVariantMap() << s("cmd lang") << s("invalid");
}

void TestSettingsManager::stack()
{
    QFETCH(QStringList, arguments);
    QFETCH(QVariantMap, ini);
    QFETCH(QString, read);
    QFETCH(QString, expected);

    const auto lines =
        runHelper(arguments, iniFile(m_dir, ini), {read.section(QLatin1Char(' '), 1)});
    QCOMPARE(lines.value(read, s("(no answer)")), expected);
}

void TestSettingsManager::keysOfTheStack()
{
    const QStringList arguments{s("--rt=1"), s("--display.width=5"), s("--flag")};
    const auto lines = runHelper(arguments, iniFile(m_dir, {{s("display/width"), 800}}), {s("rt")});

    // Runtime, command line, file, script; each key once, "." and "/" forms both.
    const QStringList expected{s("emptied"), s("nulled"),        s("rt"),  s("display.width"),
                               s("flag"),    s("display/width"), s("all"), s("ini")};
    QCOMPARE(lines.value(s("keys")), expected.join(QLatin1Char('|')));
}

void TestSettingsManager::scopes_data()
{
    QTest::addColumn<int>("attributes");
    QTest::addColumn<QVariant>("expected");

    QTest::newRow("all scopes") << int(AllScopes) << QVariant(1);
    QTest::newRow("persistent scope") << int(PersistentScope) << QVariant(s("2"));
    QTest::newRow("runtime and script") << int(RuntimeScope | IciScope) << QVariant(1);
    QTest::newRow("script scope") << int(IciScope) << QVariant(s("3"));
    QTest::newRow("command-line scope without its provider") << int(CommandlineScope) << QVariant();
    QTest::newRow("no scope bit") << int(TrustedUrlOnly | SystemSetting | PersistSetting)
                                  << QVariant();
}

void TestSettingsManager::scopes()
{
    QFETCH(int, attributes);
    QFETCH(QVariant, expected);

    MemorySettingsProvider runtime(nullptr);
    runtime.setSetting(s("a"), 1);
    IniSettingsProvider ini(iniFile(m_dir, {{s("a"), 2}}), ISettingsProvider::PersistentProvider);
    MemorySettingsProvider script(nullptr, ISettingsProvider::IciProvider);
    script.setSetting(s("a"), s("3"));

    UpdaterSettingsManager manager;
    manager.addProvider(&script);
    manager.addProvider(&ini);
    manager.addProvider(&runtime);

    const QVariant result = manager.getSetting(s("a"), SettingsAttributes::fromInt(attributes));
    QCOMPARE(result.metaType(), expected.metaType());
    QCOMPARE(result, expected);
    QCOMPARE(manager.keys(SettingsAttributes::fromInt(attributes)).isEmpty(), !expected.isValid());
}

void TestSettingsManager::trustedUrlOnly_data()
{
    QTest::addColumn<QVariant>("runtimeValue");
    QTest::addColumn<QVariant>("lowerValue");
    QTest::addColumn<int>("attributes");
    QTest::addColumn<QVariant>("expected");
    QTest::addColumn<QString>("logged");

    const QVariant nothing;
    const QVariant trusted(s("https://www.tarvel.com/news"));
    const QVariant untrusted(s("https://evil.org/news?a=1"));
    const int trustedOnly = int(AllScopes | TrustedUrlOnly);

    QTest::newRow("trusted host") << trusted << nothing << trustedOnly << trusted << QString();
    QTest::newRow("untrusted host")
        << untrusted << nothing << trustedOnly << nothing << s("https://evil.org/news?a=1");
    QTest::newRow("untrusted URL value") << QVariant(QUrl(s("http://x.evil.org:81/"))) << nothing
                                         << trustedOnly << nothing << s("http://x.evil.org:81/");
    QTest::newRow("file path") << QVariant(s("/opt/game/readme.html")) << nothing << trustedOnly
                               << QVariant(s("/opt/game/readme.html")) << QString();
    QTest::newRow("number is not a URL")
        << QVariant(42) << nothing << trustedOnly << nothing << QString();
    QTest::newRow("untrusted value does not fall through")
        << untrusted << trusted << trustedOnly << nothing << s("https://evil.org/news?a=1");
    QTest::newRow("null value falls through first")
        << QVariant(QString()) << trusted << trustedOnly << trusted << QString();
    QTest::newRow("nothing found") << nothing << nothing << trustedOnly << nothing << QString();
    QTest::newRow("without the flag")
        << untrusted << nothing << int(AllScopes) << untrusted << QString();
    QTest::newRow("flag without a scope")
        << untrusted << nothing << int(TrustedUrlOnly) << nothing << QString();
}

void TestSettingsManager::trustedUrlOnly()
{
    QFETCH(QVariant, runtimeValue);
    QFETCH(QVariant, lowerValue);
    QFETCH(int, attributes);
    QFETCH(QVariant, expected);
    QFETCH(QString, logged);

    MemorySettingsProvider runtime(nullptr);
    MemorySettingsProvider persistent(nullptr, ISettingsProvider::PersistentProvider);
    runtime.setSetting(s("url"), runtimeValue);
    persistent.setSetting(s("url"), lowerValue);
    UpdaterSettingsManager manager;
    manager.addProvider(&runtime);
    manager.addProvider(&persistent);

    const QVariant result = manager.getSetting(s("url"), SettingsAttributes::fromInt(attributes));
    QCOMPARE(result.metaType(), expected.metaType());
    QCOMPARE(result, expected);
    const QStringList expectedLog{s("5 check_url_is_trusted: Unauthorized url ") + logged};
    QCOMPARE(logRecords(), logged.isNull() ? QStringList() : expectedLog);
}

void TestSettingsManager::setSetting_data()
{
    QTest::addColumn<QVariant>("stored"); // in the persistent file before the write
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("persist");
    QTest::addColumn<bool>("notify");
    QTest::addColumn<bool>("announced");
    QTest::addColumn<QVariant>("persisted"); // in the persistent file after the write
    QTest::addColumn<QVariant>("visible");   // the stack's answer after the write

    const QVariant old(s("old"));
    const QVariant fresh(s("new"));
    const QVariant nothing;

    QTest::newRow("same value") << old << old << false << true << false << old << old;
    QTest::newRow("same value, persisted") << old << old << true << true << false << old << old;
    QTest::newRow("new value") << old << fresh << false << true << true << old << fresh;
    QTest::newRow("new value, persisted") << old << fresh << true << true << true << fresh << fresh;
    QTest::newRow("new value, silent") << old << fresh << false << false << false << old << fresh;
    QTest::newRow("new value, persisted silently")
        << old << fresh << true << false << false << fresh << fresh;
    QTest::newRow("first value") << nothing << fresh << false << true << true << nothing << fresh;
    QTest::newRow("invalid value uncovers the file")
        << old << nothing << false << true << true << old << old;
    QTest::newRow("invalid value over nothing")
        << nothing << nothing << false << true << false << nothing << nothing;
}

void TestSettingsManager::setSetting()
{
    QFETCH(QVariant, stored);
    QFETCH(QVariant, value);
    QFETCH(bool, persist);
    QFETCH(bool, notify);
    QFETCH(bool, announced);
    QFETCH(QVariant, persisted);
    QFETCH(QVariant, visible);

    const QVariantMap entries = stored.isValid() ? QVariantMap{{s("a/b"), stored}} : QVariantMap();
    MemorySettingsProvider runtime(nullptr);
    IniSettingsProvider ini(iniFile(m_dir, entries), ISettingsProvider::PersistentProvider);
    UpdaterSettingsManager manager;
    manager.addProvider(&ini);
    manager.addProvider(&runtime);
    QSignalSpy changes(&manager, &ISettingsManager::settingChanged);

    manager.setSetting(s("a.b"), value, persist, notify);

    QCOMPARE(changes.count(), announced ? 1 : 0);
    if (announced)
        QCOMPARE(changes.first(), (QVariantList{s("a.b"), value}));
    QCOMPARE(runtime.keys(), QStringList{s("a.b")});
    QCOMPARE(runtime.getSetting(s("a.b")), value);
    QCOMPARE(ini.getSetting(s("a.b")), persisted);
    QCOMPARE(manager.getSetting(s("a.b"), AllScopes), visible);
}

void TestSettingsManager::virtualGetSettingDecides()
{
    MemorySettingsProvider runtime(nullptr);
    MemorySettingsProvider script(nullptr, ISettingsProvider::IciProvider);
    OverridingManager manager;
    manager.addProvider(&runtime);
    manager.addProvider(&script);
    QSignalSpy changes(&manager, &ISettingsManager::settingChanged);

    // Both the value before a write and the rest of the stack's answer to a report come
    // through the overridable getSetting().
    manager.setSetting(s("k"), s("fixed"), false, true);
    Q_EMIT script.settingChanged(s("k"), 1, s("fixed"));
    QCOMPARE(changes.count(), 0);

    manager.setSetting(s("k"), s("other"), false, true);
    QCOMPARE(changes.count(), 1);
}

void TestSettingsManager::providerLoops_data()
{
    QTest::addColumn<QString>("operation");

    QTest::newRow("setSetting") << s("update k=1");
    QTest::newRow("save") << s("save");
    QTest::newRow("clear") << s("clear");
}

void TestSettingsManager::providerLoops()
{
    QFETCH(QString, operation);

    QStringList journal;
    JournalProvider script(s("script"), ISettingsProvider::IciProvider, &journal);
    JournalProvider runtime(s("runtime"), ISettingsProvider::RuntimeProvider, &journal);
    JournalProvider file(s("file"), ISettingsProvider::PersistentProvider, &journal);
    JournalProvider runtime2(s("runtime2"), ISettingsProvider::RuntimeProvider, &journal);
    JournalProvider late(s("late"), ISettingsProvider::CommandlineProvider, &journal);

    UpdaterSettingsManager manager;
    for (ISettingsProvider* provider : {&script, &runtime, &file, &runtime2})
        manager.addProvider(provider);
    // The first provider changes the list while the manager walks it.
    script.hook = [&] {
        manager.removeProvider(&file);
        manager.addProvider(&late);
    };

    const auto run = [&] {
        journal.clear();
        if (operation == QLatin1String("save"))
            manager.save();
        else if (operation == QLatin1String("clear"))
            manager.clear();
        else
            manager.setSetting(s("k"), 1, true, false);
        return journal;
    };
    const auto entries = [&](const QStringList& names) {
        QStringList expected;
        for (const QString& name : names)
            expected << name + QLatin1Char(' ') + operation;
        return expected;
    };

    // Insertion order over the list as it was when the loop started, then the new list.
    QCOMPARE(run(), entries({s("script"), s("runtime"), s("file"), s("runtime2")}));
    QCOMPARE(run(), entries({s("script"), s("runtime"), s("runtime2"), s("late")}));

    if (operation.startsWith(QLatin1String("update"))) {
        // Only the first provider of a type is written; the removed one no longer.
        QCOMPARE(runtime.getSetting(s("k")), QVariant(1));
        QCOMPARE(runtime2.getSetting(s("k")), QVariant());
        QCOMPARE(file.getSetting(s("k")), QVariant(1));
        file.setSetting(s("k"), QVariant());
        manager.setSetting(s("k"), 2, true, false);
        QCOMPARE(file.getSetting(s("k")), QVariant());
    }
}

void TestSettingsManager::changeReports_data()
{
    QTest::addColumn<int>("sender");
    QTest::addColumn<QVariant>("runtimeValue");
    QTest::addColumn<QVariant>("scriptValue");
    QTest::addColumn<QVariant>("previousValue");
    QTest::addColumn<QVariant>("newValue");
    QTest::addColumn<QString>("logged"); // empty when the change is not reported

    const int script = ISettingsProvider::IciProvider;
    const int runtime = ISettingsProvider::RuntimeProvider;
    const QVariant nothing;
    const QVariant one(1);
    const QVariant two(2);
    const QVariant other(5);
    const QVariant nullString{QString()};

    QTest::newRow("rest gives nothing, value unchanged")
        << script << nothing << nothing << one << one << QString();
    QTest::newRow("rest gives nothing, value changed")
        << script << nothing << nothing << one << two << s("Provider setting changed 64 k 1 2");
    QTest::newRow("rest gives nothing, value appears")
        << script << nothing << nothing << nothing << two
        << s("Provider setting changed 64 k QVariant() 2");
    QTest::newRow("rest gives a null string, value unchanged")
        << script << nullString << nothing << one << one << QString();
    QTest::newRow("rest gives a null string, value changed")
        << script << nullString << nothing << one << two << s("Provider setting changed 64 k 1 2");
    QTest::newRow("rest agrees") << script << two << nothing << one << two << QString();
    QTest::newRow("rest agrees although nothing changed")
        << script << one << nothing << one << one << QString();
    QTest::newRow("rest disagrees from above")
        << script << other << nothing << one << two << s("Provider setting changed 64 k 1 2");
    QTest::newRow("rest disagrees although nothing changed")
        << script << other << nothing << two << two << s("Provider setting changed 64 k 2 2");
    QTest::newRow("sender's own value does not count")
        << runtime << two << nothing << one << two << s("Provider setting changed 16 k 1 2");
    QTest::newRow("rest agrees from below") << runtime << two << two << one << two << QString();
    QTest::newRow("rest disagrees from below")
        << runtime << two << other << one << two << s("Provider setting changed 16 k 1 2");
}

void TestSettingsManager::changeReports()
{
    QFETCH(int, sender);
    QFETCH(QVariant, runtimeValue);
    QFETCH(QVariant, scriptValue);
    QFETCH(QVariant, previousValue);
    QFETCH(QVariant, newValue);
    QFETCH(QString, logged);

    MemorySettingsProvider runtime(nullptr);
    MemorySettingsProvider script(nullptr, ISettingsProvider::IciProvider);
    if (runtimeValue.isValid())
        runtime.setSetting(s("k"), runtimeValue);
    if (scriptValue.isValid())
        script.setSetting(s("k"), scriptValue);
    UpdaterSettingsManager manager;
    manager.addProvider(&runtime);
    manager.addProvider(&script);
    QSignalSpy changes(&manager, &ISettingsManager::settingChanged);

    ISettingsProvider* reporter = sender == ISettingsProvider::IciProvider
        ? static_cast<ISettingsProvider*>(&script)
        : &runtime;
    Q_EMIT reporter->settingChanged(s("k"), previousValue, newValue);

    if (logged.isEmpty()) {
        QCOMPARE(changes.count(), 0);
        QCOMPARE(logRecords(), QStringList());
    } else {
        QCOMPARE(changes.count(), 1);
        QCOMPARE(changes.first(), (QVariantList{s("k"), newValue}));
        QCOMPARE(logRecords(), QStringList{s("0 onProviderChanged: ") + logged});
    }
}

void TestSettingsManager::providerAddedTwice()
{
    QStringList journal;
    JournalProvider script(s("script"), ISettingsProvider::IciProvider, &journal);
    script.setSetting(s("k"), 1);
    UpdaterSettingsManager manager;
    manager.addProvider(&script);
    manager.addProvider(&script);
    QSignalSpy changes(&manager, &ISettingsManager::settingChanged);

    Q_EMIT script.settingChanged(s("k"), 1, 2);
    QCOMPARE(changes.count(), 1);
    // Without a provider as sender, a report is ignored.
    manager.onProviderChanged(s("k"), 1, 3);
    QCOMPARE(changes.count(), 1);

    manager.save();
    QCOMPARE(journal, QStringList{s("script save")});

    // One entry: a single removal leaves nothing behind.
    manager.removeProvider(&script);
    QCOMPARE(manager.providerByType(ISettingsProvider::IciProvider), nullptr);
    QCOMPARE(manager.getSetting(s("k"), AllScopes), QVariant());
}

void TestSettingsManager::removedProvider()
{
    MemorySettingsProvider runtime(nullptr);
    MemorySettingsProvider script(nullptr, ISettingsProvider::IciProvider);
    MemorySettingsProvider stranger(nullptr, ISettingsProvider::PersistentProvider);
    runtime.setSetting(s("k"), s("runtime"));
    script.setSetting(s("only"), s("script"));
    UpdaterSettingsManager manager;
    manager.addProvider(&runtime);
    manager.addProvider(&script);
    QSignalSpy changes(&manager, &ISettingsManager::settingChanged);

    // The manager's own connections to the providers, as a provider's slots would be.
    int heardByScript = 0;
    int heardByStranger = 0;
    connect(&manager, &ISettingsManager::settingChanged, &script, [&] { ++heardByScript; });
    connect(&manager, &ISettingsManager::settingChanged, &stranger, [&] { ++heardByStranger; });

    manager.removeProvider(nullptr);
    manager.removeProvider(&stranger); // never added: its connections stay
    manager.removeProvider(&script);

    QCOMPARE(manager.providerByType(ISettingsProvider::IciProvider), nullptr);
    QCOMPARE(manager.getSetting(s("only"), AllScopes), QVariant());
    QCOMPARE(manager.keys(AllScopes), QStringList{s("k")});

    // Still heard: the rest of the stack disagrees with the new value...
    Q_EMIT script.settingChanged(s("k"), 1, 2);
    QCOMPARE(changes.count(), 1);
    QCOMPARE(changes.first(), (QVariantList{s("k"), 2}));
    QCOMPARE(heardByScript, 0);
    QCOMPARE(heardByStranger, 1);
    // ...and not announced when it agrees.
    Q_EMIT script.settingChanged(s("k"), 1, s("runtime"));
    QCOMPARE(changes.count(), 1);
}

QTEST_GUILESS_MAIN(TestSettingsManager)
#include "tst_settingsmanager.moc"
