// The plugin API's settings over the real settings stack (memory, INI file, command line and a
// configuration script on disk), background mode over real fixture plugins, and a restart seen
// from the process it starts.
#include <libupdater/CommandlineSettingsProvider.h>
#include <libupdater/ISystemSettingsProvider.h>
#include <libupdater/IciSettingsProvider.h>
#include <libupdater/IniSettingsProvider.h>
#include <libupdater/MemorySettingsProvider.h>
#include <libupdater/UpdaterPluginApi.h>
#include <libupdater/UpdaterPluginInfo.h>
#include <libupdater/UpdaterPluginsManager.h>
#include <libupdater/UpdaterSettingsManager.h>

#include <basix/ICISettings.h>

#include <LogCapture.h>
#include "fixtures/PluginScenario.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QProcess>
#include <QtCore/QStandardPaths>
#include <QtGui/QGuiApplication>
#include <QtGui/QIcon>
#include <QtTest/QTest>

#include <memory>

using namespace tvl::updater;

namespace {

// Set: this process asks for a restart, and the process it starts (recognised by "--restart")
// writes its command line to this file (as a JSON array).
constexpr char RestartRecordVariable[] = "TST_PLUGINAPISETTINGS_RESTART_RECORD";
// "1": the restart keeps the current arguments.
constexpr char RestartKeepVariable[] = "TST_PLUGINAPISETTINGS_RESTART_KEEP";

class SystemSettings : public QObject, public ISystemSettingsProvider
{
    Q_OBJECT
    Q_INTERFACES(tvl::updater::ISystemSettingsProvider)

public:
    explicit SystemSettings(const QVariantMap& values)
        : m_values(values)
    {
    }

    QVariant value(const QString& key) const override { return m_values.value(key); }
    void setValue(const QString& key, const QVariant& value) override { m_values.insert(key, value); }

private:
    QVariantMap m_values;
};

QByteArray withIcons(QByteArray text)
{
    return text.replace("@16@", ICON_DIR "/icon_help_16.png").replace("@32@", ICON_DIR "/icon_help_32.png");
}

/**
 * The settings stack as the launcher builds it, registered with the API of a plugin manager
 * without plugins: runtime values in memory, the command line of this process, the user's
 * preferences in an INI file and a configuration script on disk, opened with loadSettings().
 */
class SettingsStack
{
public:
    SettingsStack(const QByteArray& script, const QByteArray& ini, const QVariantMap& runtime)
    {
        write(QStringLiteral("updater.ini"), ini);
        write(QStringLiteral("updater.lua"), withIcons(script));

        auto* settings = new UpdaterSettingsManager;
        auto* memory = new MemorySettingsProvider(settings);
        for (auto it = runtime.cbegin(); it != runtime.cend(); ++it)
            memory->setSetting(it.key(), it.value());
        settings->addProvider(memory);
        settings->addProvider(new CommandlineSettingsProvider(settings));
        settings->addProvider(new IniSettingsProvider(m_dir.filePath(QStringLiteral("updater.ini")),
                                                      ISettingsProvider::PersistentProvider, settings));
        // The API deletes what is registered with it.
        api()->addObject(settings);

        tvl::ICISettings* engine = api()->loadSettings(m_dir.filePath(QStringLiteral("updater.lua")), m_dir.path());
        auto* provider = new IciSettingsProvider(engine, settings);
        engine->setParent(provider);
        m_evaluated = provider->evaluate();
        settings->addProvider(provider);
    }

    UpdaterPluginApi* api() const { return m_host.api(); }
    bool evaluated() const { return m_evaluated; }

private:
    void write(const QString& name, const QByteArray& content)
    {
        QFile file(m_dir.filePath(name));
        if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
            qFatal("cannot write %s", qPrintable(file.fileName()));
    }

    QTemporaryDir m_dir;
    UpdaterPluginsManager m_host;
    bool m_evaluated = false;
};

/// A value as the tables below write it; an icon by the width of its image.
QString describe(const QVariant& value)
{
    if (!value.isValid())
        return QStringLiteral("invalid");
    if (value.typeId() == QMetaType::QIcon) {
        const QIcon icon = value.value<QIcon>();
        if (icon.isNull())
            return QStringLiteral("icon:null");
        const QList<QSize> sizes = icon.availableSizes();
        return QStringLiteral("icon:%1").arg(sizes.isEmpty() ? -1 : sizes.first().width());
    }
    return value.toString();
}

/// This API's records of `function` logged since the last call, as "<level> <message>".
QStringList apiLog(LogCapture& log, const QString& function)
{
    QStringList lines;
    for (const LogCapture::Record& record : log.take()) {
        if (record.file == QLatin1String("libupdater/UpdaterPluginApi") && record.function == function)
            lines.append(QString::number(record.level) + QLatin1Char(' ') + record.message);
    }
    return lines;
}

/// Started by restart_updater(): writes the command line it was given.
int recordCommandLine(int argc, char** argv)
{
    QJsonArray arguments;
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    QFile record(qEnvironmentVariable(RestartRecordVariable));
    if (!record.open(QIODevice::WriteOnly | QIODevice::Append))
        return 3;
    record.write(QJsonDocument(arguments).toJson(QJsonDocument::Compact) + '\n');
    return 0;
}

/// Loads fixture plugins that add arguments to a restart, asks for one and shuts down.
int requestRestart(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    QStandardPaths::setTestModeEnabled(true);
    int code = 2;
    {
        // "a" depends on "b", so the plugins load as b, a, c, d, and loadedPlugins() lists
        // them the other way round: neither the order by name nor the load order.
        Host host;
        if (!host.load({"a|depends = {'b'}|restart = {'--from-a', 'two words'}", "b||restart = {'--from-b'}",
                        "c||restart = {'--from-c'}", "d"}))
            return 3;
        const bool keep = qgetenv(RestartKeepVariable) == "1";
        code = runEventLoop([&host, keep] {
            host.manager->api()->restart_updater({QStringLiteral("--mine")}, keep);
        });
    }
    // The restart is launched when the application object goes.
    return code;
}

} // namespace

class TestPluginApiSettings : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();
    void settingsFollowRegistry();
    void translated_data();
    void translated();
    void loadSettings_data();
    void loadSettings();
    void devMode_data();
    void devMode();
    void backgroundMode();
    void restart_data();
    void restart();
};

void TestPluginApiSettings::cleanup()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

void TestPluginApiSettings::settingsFollowRegistry()
{
    UpdaterPluginsManager host;
    UpdaterPluginApi* api = host.api();
    const auto manager = [](int value) {
        auto* settings = new UpdaterSettingsManager;
        auto* runtime = new MemorySettingsProvider(settings);
        runtime->setSetting(QStringLiteral("k"), value);
        settings->addProvider(runtime);
        return settings;
    };
    const auto read = [api] { return api->getSetting(QStringLiteral("k"), QStringLiteral("none")); };

    QCOMPARE(read(), QVariant("none"));
    std::unique_ptr<UpdaterSettingsManager> first(manager(1));
    auto* second = manager(2);
    api->addObject(first.get());
    QCOMPARE(read(), QVariant(1));
    // The first one registered answers.
    api->addObject(second);
    QCOMPARE(read(), QVariant(1));
    api->removeObject(first.get());
    QCOMPARE(read(), QVariant(2));
    api->setSetting(QStringLiteral("k"), 20);
    QCOMPARE(second->getSetting(QStringLiteral("k"), AllScopes), QVariant(20));
    delete second;
    QCOMPARE(read(), QVariant("none"));
    api->addObject(first.get());
    QCOMPARE(read(), QVariant(1));
    first.reset();
    QCOMPARE(read(), QVariant("none"));
}

void TestPluginApiSettings::translated_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<QByteArray>("ini");
    QTest::addColumn<QVariantMap>("runtime");
    QTest::addColumn<QVariantMap>("system"); // empty: no system settings provider
    QTest::addColumn<int>("attributes");
    QTest::addColumn<QString>("expected");

    const QVariantMap none;
    const int translated = TranslatedSetting;
    const int all = TranslatedSetting | AllScopes;
    const QByteArray allKeys = "t = { fr_CA = 'fr_CA', fr = 'fr', de = 'de', en = 'en', _CA = '_CA', [''] = '' }\n";

    QTest::newRow("language and country") << "i18n = { lang = 'fr', country = 'ca' }\n" + allKeys << QByteArray()
                                          << none << none << all << "fr_CA";
    QTest::newRow("country unset") << "i18n = { lang = 'fr' }\n" + allKeys << QByteArray() << none << none << all
                                   << "fr";
    QTest::newRow("country set but empty")
        << QByteArray("i18n = { lang = 'fr', country = '' }\nt = { fr_ = 'fr_', fr = 'fr' }\n") << QByteArray()
        << none << none << all << "fr_";
    QTest::newRow("country empty in the runtime layer")
        << QByteArray("i18n = { lang = 'fr', country = 'CA' }\nt = { fr_ = 'fr_', fr_CA = 'fr_CA' }\n")
        << QByteArray() << QVariantMap{{"i18n.country", QStringLiteral("")}} << none << all << "fr_";
    QTest::newRow("language unset") << "i18n = { country = 'CA' }\n" + allKeys << QByteArray() << none << none
                                    << all << "_CA";
    QTest::newRow("language unset: empty language")
        << QByteArray("t = { [''] = 'empty', en = 'en' }\n") << QByteArray() << none << none << all << "empty";
    QTest::newRow("default language")
        << QByteArray("i18n = { lang = 'fr', country = 'CA', default_lang = 'de' }\nt = { de = 'de', en = 'en' }\n")
        << QByteArray() << none << none << all << "de";
    // Were the empty default language tried, "t." would answer.
    QTest::newRow("default language empty")
        << QByteArray("i18n = { lang = 'fr', default_lang = '' }\nt = { [''] = 'empty', en = 'en' }\n")
        << QByteArray() << none << none << all << "en";
    QTest::newRow("only en") << QByteArray("i18n = { lang = 'fr', country = 'CA', default_lang = 'de' }\n"
                                           "t = { en = 'en' }\n")
                             << QByteArray() << none << none << all << "en";
    QTest::newRow("bare key never read") << QByteArray("i18n = { lang = 'fr' }\nt = 'bare'\n")
                                         << QByteArray("t=bare\n") << none << none << all << "default";
    QTest::newRow("nothing") << QByteArray("i18n = { lang = 'fr' }\n") << QByteArray() << none << none << all
                             << "default";
    QTest::newRow("language from the saved preferences")
        << QByteArray("i18n = { lang = 'fr' }\nt = { fr = 'fr', de = 'de' }\n") << QByteArray("[i18n]\nlang=de\n")
        << none << none << all << "de";
    QTest::newRow("value from the saved preferences")
        << QByteArray("i18n = { lang = 'fr' }\nt = { fr = 'script' }\n") << QByteArray("[t]\nfr=saved\n") << none
        << none << all << "saved";
    QTest::newRow("only TranslatedSetting: all scopes")
        << QByteArray("i18n = { lang = 'fr' }\nt = { fr = 'script' }\n") << QByteArray() << none << none
        << translated << "script";
    // The language comes from the script even so; the translated keys only from memory.
    QTest::newRow("narrowed scopes")
        << QByteArray("i18n = { lang = 'fr', country = 'CA' }\nt = { fr_CA = 'script' }\n") << QByteArray()
        << QVariantMap{{"t.fr", "runtime fr"}, {"t.en", "runtime en"}} << none
        << int(TranslatedSetting | RuntimeScope) << "runtime fr";

    const QByteArray script = "i18n = { lang = 'fr' }\nt = { fr = 'script fr', de = 'script de' }\n";
    QTest::newRow("system value first") << script << QByteArray() << none
                                        << QVariantMap{{"t.fr", "system fr"}, {"i18n.lang", "de"}}
                                        << int(all | SystemSetting) << "system fr";
    QTest::newRow("system value per key") << script << QByteArray() << none
                                          << QVariantMap{{"t.en", "system en"}, {"i18n.lang", "en"}}
                                          << int(all | SystemSetting) << "script fr";
    QTest::newRow("system values unasked") << script << QByteArray() << none << QVariantMap{{"t.fr", "system fr"}}
                                           << all << "script fr";

    const QByteArray icons = "i18n = { lang = 'fr', country = 'CA' }\nt = { fr = '@16@', en = '@32@' }\n";
    QTest::newRow("icon") << icons << QByteArray() << none << none << int(all | IconSetting) << "icon:16";
    QTest::newRow("icon in english")
        << QByteArray("i18n = { lang = 'fr', country = 'CA' }\nt = { de = '@16@', en = '@32@' }\n") << QByteArray()
        << none << none << int(all | IconSetting) << "icon:32";
    QTest::newRow("icon of nothing") << QByteArray("i18n = { lang = 'fr' }\n") << QByteArray() << none << none
                                     << int(all | IconSetting) << "default";
    // A system value is returned as it is.
    QTest::newRow("icon from the system") << icons << QByteArray() << none
                                          << QVariantMap{{"t.fr_CA", "@32@"}}
                                          << int(all | IconSetting | SystemSetting) << "@32@";
}

void TestPluginApiSettings::translated()
{
    QFETCH(QByteArray, script);
    QFETCH(QByteArray, ini);
    QFETCH(QVariantMap, runtime);
    QFETCH(QVariantMap, system);
    QFETCH(int, attributes);

    SettingsStack stack(script, ini, runtime);
    QVERIFY(stack.evaluated());
    if (!system.isEmpty())
        stack.api()->addObject(new SystemSettings(system));

    const QVariant value =
        stack.api()->getSetting(QStringLiteral("t"), QStringLiteral("default"), SettingsAttributes(attributes));
    QTEST(describe(value), "expected");
}

void TestPluginApiSettings::loadSettings_data()
{
    QTest::addColumn<bool>("withSettings");
    QTest::addColumn<QVariant>("osname");
    QTest::addColumn<QString>("where");

    QTest::newRow("settings manager") << true << QVariant("plan9") << "/opt/launcher/plan9";
    QTest::newRow("no settings manager") << false << QVariant() << "/opt/launcher/?";
}

void TestPluginApiSettings::loadSettings()
{
    QFETCH(bool, withSettings);
    QFETCH(QVariant, osname);

    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("game.lua"));
    {
        QFile script(file);
        QVERIFY(script.open(QIODevice::WriteOnly));
        script.write("where = root .. '/' .. (sys and sys.osname or '?')\n");
    }

    UpdaterPluginsManager host;
    if (withSettings) {
        auto* settings = new UpdaterSettingsManager;
        auto* runtime = new MemorySettingsProvider(settings);
        runtime->setSetting(QStringLiteral("sys.osname"), QStringLiteral("plan9"));
        settings->addProvider(runtime);
        host.api()->addObject(settings);
    }

    const std::unique_ptr<tvl::ICISettings> engine(host.api()->loadSettings(file, QStringLiteral("/opt/launcher")));
    QVERIFY(engine);
    QVERIFY(!engine->parent());
    QCOMPARE(engine->file(), file);
    QCOMPARE(engine->value(QStringLiteral("root")), QVariant(QStringLiteral("/opt/launcher")));
    QCOMPARE(engine->value(QStringLiteral("sys.osname")), osname);
    // Not evaluated yet: the caller registers its functions first.
    QVERIFY(!engine->value(QStringLiteral("where")).isValid());
    QVERIFY2(engine->evaluate(), qPrintable(engine->errorString()));
    QTEST(engine->value(QStringLiteral("where")).toString(), "where");
}

void TestPluginApiSettings::devMode_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<QByteArray>("ini");
    QTest::addColumn<QVariantMap>("runtime");
    QTest::addColumn<bool>("expected");

    QTest::newRow("unset") << QByteArray("-- nothing\n") << QByteArray() << QVariantMap() << false;
    QTest::newRow("script") << QByteArray("dev_mode = true\n") << QByteArray() << QVariantMap() << true;
    QTest::newRow("saved preference over the script") << QByteArray("dev_mode = false\n")
                                                       << QByteArray("dev_mode=true\n") << QVariantMap() << true;
    QTest::newRow("runtime value over the script") << QByteArray("dev_mode = true\n") << QByteArray()
                                                   << QVariantMap{{"dev_mode", false}} << false;
}

void TestPluginApiSettings::devMode()
{
    QFETCH(QByteArray, script);
    QFETCH(QByteArray, ini);
    QFETCH(QVariantMap, runtime);

    SettingsStack stack(script, ini, runtime);
    QVERIFY(stack.evaluated());
    QTEST(stack.api()->isDevMode(), "expected");
}

void TestPluginApiSettings::backgroundMode()
{
    LogCapture log;
    const QString function = QStringLiteral("activateBackgroundMode");
    Host host;
    // Only an answer of exactly 1 unloads. "c" is mandatory: when it cannot be loaded again,
    // the manager's load fails, which is what makes it stay on the list.
    QVERIFY(host.load({"a||background = 1", "b", "c|mandatory = true|background = 1", "d||background = 2"}));
    UpdaterPluginApi* api = host.manager->api();
    const auto mapped = [&host](const char* name) { return libraryMapped(host.dir.library(QLatin1String(name))); };
    const auto isLoaded = [&host](const char* name) { return host.record(QLatin1String(name))->isLoaded(); };
    log.take();

    const auto asked = [&host] { return host.journal->filter(QStringLiteral("background")); };
    api->activateBackgroundMode(true);
    QCOMPARE(asked(), (QStringList{"a background 1", "b background 1", "c background 1", "d background 1"}));
    QTRY_VERIFY(!mapped("a") && !mapped("c"));
    QVERIFY(mapped("b") && mapped("d"));
    QCOMPARE(host.loaded(), (QStringList{"b", "d"}));
    QCOMPARE(apiLog(log, function), (QStringList{"0 bg mode unload a", "0 bg mode unload c"}));

    // Only the plugins still loaded are asked; nothing enters the list twice.
    host.journal->clear();
    api->activateBackgroundMode(true);
    QCOMPARE(*host.journal, (QStringList{"b background 1", "d background 1"}));
    QVERIFY(apiLog(log, function).isEmpty());

    host.journal->clear();
    QVERIFY(QFile::remove(host.dir.library(QStringLiteral("c"))));
    QCOMPARE(runEventLoop([api] { api->activateBackgroundMode(false); }), 126);
    QCOMPARE(apiLog(log, function), (QStringList{"0 bg mode reload a", "0 bg mode reload c"}));
    // Mapped afresh, the library counts its plugin objects from 1 again.
    QCOMPARE(host.journal->filter(QStringLiteral(" init ")), QStringList{"a init 1"});
    QVERIFY(isLoaded("a") && !isLoaded("c"));

    // The plugin that failed is tried again, and only it.
    host.dir.copy(QStringLiteral(FIXTURE_PLUGIN), QStringLiteral("c"));
    api->activateBackgroundMode(false);
    QCOMPARE(apiLog(log, function), QStringList{"0 bg mode reload c"});
    QCOMPARE(host.journal->filter(QStringLiteral(" init ")), (QStringList{"a init 1", "c init 1"}));
    QCOMPARE(host.loaded().size(), 4);

    api->activateBackgroundMode(false);
    QVERIFY(apiLog(log, function).isEmpty());
    // Leaving background mode is told by reloading alone.
    QVERIFY(asked().isEmpty());
}

void TestPluginApiSettings::restart_data()
{
    QTest::addColumn<bool>("keep");
    QTest::addColumn<QStringList>("expected"); // after the program

    const QStringList plugins{"--from-c", "--from-a", "two words", "--from-b"};
    QTest::newRow("new arguments") << false << QStringList{"--restart", "--mine"} + plugins;
    QTest::newRow("current arguments kept") << true
                                            << QStringList{"-q", "--level=2", "--restart", "--mine"} + plugins;
}

void TestPluginApiSettings::restart()
{
    QFETCH(bool, keep);
    QFETCH(QStringList, expected);

    QTemporaryDir dir;
    const QString recordPath = dir.filePath(QStringLiteral("record"));
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QLatin1String(RestartRecordVariable), recordPath);
    environment.insert(QLatin1String(RestartKeepVariable), QLatin1String(keep ? "1" : "0"));
    QProcess child;
    child.setProcessEnvironment(environment);
    child.start(QCoreApplication::applicationFilePath(), {QStringLiteral("-q"), QStringLiteral("--level=2")});
    QVERIFY(child.waitForFinished(60000));
    QVERIFY2(child.exitStatus() == QProcess::NormalExit && child.exitCode() == 0,
             child.readAllStandardError().right(4000).constData());

    const auto records = [&recordPath] {
        QFile file(recordPath);
        QList<QByteArray> lines;
        if (file.open(QIODevice::ReadOnly))
            lines = file.readAll().split('\n');
        lines.removeAll(QByteArray());
        return lines;
    };
    QTRY_VERIFY_WITH_TIMEOUT(!records().isEmpty(), 60000);
    QCOMPARE(records().size(), 1);
    QStringList started = QJsonDocument::fromJson(records().first()).toVariant().toStringList();
    QCOMPARE(started.takeFirst(), QCoreApplication::applicationFilePath());
    QCOMPARE(started, expected);
}

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsSet(RestartRecordVariable)) {
        for (int i = 1; i < argc; ++i) {
            if (qstrcmp(argv[i], "--restart") == 0)
                return recordCommandLine(argc, argv);
        }
        return requestRestart(argc, argv);
    }
    QStandardPaths::setTestModeEnabled(true);
    QGuiApplication application(argc, argv);
    TestPluginApiSettings test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_pluginapisettings.moc"
