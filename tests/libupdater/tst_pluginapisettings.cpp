// The plugin API's settings over a real settings stack, background mode over real fixture
// plugins, and a restart seen from the process it starts.
#include <libupdater/ISystemSettingsProvider.h>
#include <libupdater/IciSettingsProvider.h>
#include <libupdater/MemorySettingsProvider.h>
#include <libupdater/UpdaterPlugin.h>
#include <libupdater/UpdaterSettingsManager.h>

#include <basix/ICISettings.h>

#include <LogCapture.h>
#include "fixtures/PluginScenario.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QStandardPaths>
#include <QtGui/QGuiApplication>
#include <QtGui/QIcon>
#include <QtTest/QTest>

using namespace tvl::updater;

namespace {

struct SystemSettings : QObject, ISystemSettingsProvider
{
    Q_OBJECT
    Q_INTERFACES(tvl::updater::ISystemSettingsProvider)

public:
    explicit SystemSettings(const QVariantMap& values) : values(values) {}
    QVariant value(const QString& key) const override { return values.value(key); }
    void setValue(const QString& key, const QVariant& value) override { values.insert(key, value); }
    QVariantMap values;
};

// An icon as "icon:<width of its first image>", -1 when it has none.
QString describe(const QVariant& value)
{
    const int width = value.value<QIcon>().availableSizes().value(0).width();
    return value.typeId() == QMetaType::QIcon ? QString("icon:%1").arg(width) : value.toString();
}

// The child asks for a restart from plugins that add arguments; the process that it starts
// (recognised by "--restart") appends its command line to the file RESTART_RECORD.
int restartScenario(const QByteArray&, int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    if (application.arguments().contains("--restart")) {
        QFile record(qEnvironmentVariable("RESTART_RECORD"));
        const QJsonDocument line(QJsonArray::fromStringList(application.arguments()));
        return record.open(QIODevice::Append) && record.write(line.toJson(QJsonDocument::Compact) + '\n') > 0 ? 0 : 3;
    }
    QStandardPaths::setTestModeEnabled(true);
    Host host;
    // "a" depends on "b": they load as b, a, c, d, and loadedPlugins() lists them the other way
    // round, neither the order by name nor the load order.
    if (!host.load({"a|depends = {'b'}|restart = {'--from-a', 'two words'}", "b||restart = {'--from-b'}",
                    "c||restart = {'--from-c'}", "d"}))
        return 3;
    // The new process, with the current arguments kept, starts once the application object is gone.
    return runEventLoop([&] { host.manager->api()->restart_updater({"--mine"}, true); });
}

} // namespace

class TestPluginApiSettings : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }
    void cleanup() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

    void translated_data()
    {
        QTest::addColumn<QByteArray>("script");
        QTest::addColumn<int>("attributes");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<QVariantMap>("system"); // what the system settings provider holds
        QTest::addColumn<QVariantMap>("runtime");

        const auto row = [](const char* name, const QByteArray& script, int attributes, const char* expected,
                            const QVariantMap& system = {}, const QVariantMap& runtime = {}) {
            QTest::newRow(name) << script << attributes << QString(expected) << system << runtime;
        };
        const int T = TranslatedSetting; // without a scope bit, it means all scopes
        const int A = T | AllScopes;
        const QByteArray all = "t = { fr_CA = 'fr_CA', fr_ = 'fr_', fr = 'fr', de = 'de', en = 'en', _CA = '_CA' }\n";
        row("language and country", "i18n = { lang = 'fr', country = 'ca' }\n" + all, T, "fr_CA");
        row("country unset", "i18n = { lang = 'fr' }\n" + all, T, "fr");
        row("country empty", "i18n = { lang = 'fr', country = '' }\n" + all, T, "fr_");
        row("language unset", "i18n = { country = 'CA' }\n" + all, T, "_CA");
        row("default language", "i18n = { lang = 'it', country = 'CA', default_lang = 'de' }\n" + all, T, "de");
        // Were the empty default language tried, "t." would answer.
        row("default language empty", "i18n = { lang = 'it', default_lang = '' }\nt = { [''] = '', en = 'en' }\n", T,
            "en");
        row("bare key never read", "i18n = { lang = 'fr' }\nt = 'bare'\n", T, "default");
        // The language comes from the script even so, the translations from memory alone.
        row("narrowed scopes", "i18n = { lang = 'fr', country = 'CA' }\nt = { fr_CA = 'script' }\n",
            T | RuntimeScope, "runtime fr", {}, {{"t.fr", "runtime fr"}, {"t.en", "runtime en"}});
        row("loaded with root and sys.osname", "t = { en = root .. '/' .. sys.osname }\n", T, "/opt/launcher/plan9",
            {}, {{"sys.osname", "plan9"}});
        const QByteArray fr = "i18n = { lang = 'fr' }\n" + all;
        row("system value first", fr, A | SystemSetting, "system fr", {{"t.fr", "system fr"}, {"i18n.lang", "de"}});
        row("system value per key", fr, A | SystemSetting, "fr", {{"t.en", "system en"}});
        row("system values unasked", fr, A, "fr", {{"t.fr", "system fr"}});
        const QByteArray icons = "t = { fr = '" TESTS_SOURCE_DIR "/icons/icon_help_16.png', en = '" TESTS_SOURCE_DIR
                                 "/icons/icon_help_32.png' }\n";
        row("icon in english", "i18n = { lang = 'de' }\n" + icons, A | IconSetting, "icon:32");
        row("icon of nothing", "i18n = { lang = 'fr' }\n", A | IconSetting, "default");
        // A system value is returned as it is.
        row("icon from the system", "i18n = { lang = 'fr', country = 'CA' }\n" + icons,
            A | IconSetting | SystemSetting, "path", {{"t.fr_CA", "path"}});
    }

    void translated()
    {
        QFETCH(QByteArray, script);
        QFETCH(int, attributes);
        QFETCH(QVariantMap, system);
        QFETCH(QVariantMap, runtime);

        // The stack as the launcher builds it, registered with the API of a manager without plugins.
        UpdaterPluginsManager host;
        UpdaterPluginApi* api = host.api();
        QTemporaryDir dir;
        auto* settings = new UpdaterSettingsManager;
        api->addObject(settings); // the API deletes what is registered with it
        auto* memory = new MemorySettingsProvider(settings);
        for (auto it = runtime.cbegin(); it != runtime.cend(); ++it)
            memory->setSetting(it.key(), it.value());
        settings->addProvider(memory);
        tvl::ICISettings* engine =
            api->loadSettings(testsupport::writeFile(dir.filePath("updater.lua"), script), "/opt/launcher");
        auto* provider = new IciSettingsProvider(engine, settings);
        engine->setParent(provider);
        QVERIFY(provider->evaluate());
        settings->addProvider(provider);
        api->addObject(new SystemSettings(system));

        const QVariant value = api->getSetting("t", "default", SettingsAttributes(attributes));
        QTEST(describe(value), "expected");
    }

    void backgroundMode()
    {
        Host host;
        // Only an answer of exactly 1 unloads. "c" is mandatory: when it cannot be loaded again,
        // the manager's load fails, which is what makes it stay on the list.
        QVERIFY(host.load({"a||background = 1", "b", "c|mandatory = true|background = 1", "d||background = 2"}));
        UpdaterPluginApi* api = host.manager->api();
        LogCapture log;
        const auto apiLog = [&log] { return log.lines("libupdater/UpdaterPluginApi"); };

        api->activateBackgroundMode(true);
        QCOMPARE(host.journal->filter("background"),
                 (QStringList{"a background 1", "b background 1", "c background 1", "d background 1"}));
        QTRY_VERIFY(!libraryMapped(host.dir.library("a")) && !libraryMapped(host.dir.library("c")));
        QCOMPARE(host.loaded(), (QStringList{"b", "d"}));
        QCOMPARE(apiLog(), (QStringList{"0 bg mode unload a", "0 bg mode unload c"}));

        // Only the plugins still loaded are asked; nothing enters the list twice.
        host.journal->clear();
        api->activateBackgroundMode(true);
        QCOMPARE(*host.journal, (QStringList{"b background 1", "d background 1"}));

        host.journal->clear();
        QVERIFY(QFile::remove(host.dir.library("c")));
        QCOMPARE(runEventLoop([api] { api->activateBackgroundMode(false); }), 126);
        QCOMPARE(apiLog(), (QStringList{"0 bg mode reload a", "0 bg mode reload c"}));
        // Mapped afresh, the library counts its plugin objects from 1 again.
        QCOMPARE(host.journal->filter(" init "), QStringList{"a init 1"});
        QVERIFY(host.record("a")->isLoaded() && !host.record("c")->isLoaded());

        // The plugin that failed is tried again, and only it; leaving is told by reloading alone.
        host.dir.copy(FIXTURE_PLUGIN, "c");
        api->activateBackgroundMode(false);
        QCOMPARE(apiLog(), QStringList{"0 bg mode reload c"});
        QCOMPARE(host.journal->filter(" init "), (QStringList{"a init 1", "c init 1"}));
        QCOMPARE(host.loaded().size(), 4);
        api->activateBackgroundMode(false);
        QCOMPARE(apiLog(), QStringList());
        QCOMPARE(host.journal->filter("background"), QStringList());
    }

    void backgroundModeLeftAtOnce()
    {
        // A game that ends at once: background mode is left before the unloaded plugin's deferred deletion ran.
        // The plugin comes back as a new object of a freshly mapped library, and stays usable.
        Host host;
        QVERIFY(host.load({"a||background = 1", "b"}));
        UpdaterPluginApi* api = host.manager->api();
        api->activateBackgroundMode(true);
        api->activateBackgroundMode(false);
        QVERIFY(host.record("a")->isLoaded());
        QPointer<UpdaterPlugin> plugin = host.record("a")->plugin();
        QVERIFY(plugin);
        // What was still queued of the first unload must leave the new plugin and its library alone.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QTest::qWait(50);
        QVERIFY(plugin && host.record("a")->plugin() == plugin && host.record("a")->isLoaded());
        QVERIFY(libraryMapped(host.dir.library("a")));
        // Mapped afresh: the library counts its plugin objects from 1 again.
        QCOMPARE(host.journal->filter(" init "), QStringList{"a init 1"});
        // And a second round trip, with the events served in between, unloads and loads it again.
        api->activateBackgroundMode(true);
        QTRY_VERIFY(!libraryMapped(host.dir.library("a")));
        api->activateBackgroundMode(false);
        QVERIFY(host.record("a")->isLoaded() && host.record("a")->plugin());
    }

    void restart()
    {
        QTemporaryDir dir;
        const QString record = dir.filePath("record");
        const auto child = testsupport::runScenario("restart", {"-q", "--level=2"}, {"RESTART_RECORD=" + record});
        QVERIFY2(child.exitedWith(0), child.err.right(4000).constData());
        const auto lines = [&record] { return testsupport::readFile(record).split('\n'); };
        QTRY_COMPARE_WITH_TIMEOUT(lines().size(), 2, 60000); // one line, then nothing
        QCOMPARE(QJsonDocument::fromJson(lines().first()).toVariant().toStringList(),
                 (QStringList{QCoreApplication::applicationFilePath(), "-q", "--level=2", "--restart", "--mine",
                              "--from-c", "--from-a", "two words", "--from-b"}));
    }
};

TEST_MAIN_WITH_SCENARIOS(TestPluginApiSettings, QGuiApplication, restartScenario)

#include "tst_pluginapisettings.moc"
