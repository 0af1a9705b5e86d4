// The i18n plugin in a real plugin host, with a settings manager of the test's own, and in the launcher: the
// library's and the plugins' texts follow "i18n.lang" at start and while running, and widgets are told.
#include <libupdater/II18n.h>
#include <libupdater/MemorySettingsProvider.h>
#include <libupdater/UiUtils.h>
#include <libupdater/Updater.h>
#include <libupdater/UpdaterPluginInfo.h>
#include <libupdater/UpdaterSettingsManager.h>

#include <LogCapture.h>
#include "BundledPlugins.h"

#include <QtCore/QTranslator>
#include <QtTest/QSignalSpy>
#include <QtTest/QTest>
#include <QtWidgets/QApplication>
#include <QtWidgets/QLabel>

using namespace tvl::updater;

namespace {

/// The library's texts as they read now: durations in context "QObject" and a text of the plugin host.
QStringList libraryTexts()
{
    return {tv_seconds_to_userfriendly_duration(30), tv_seconds_to_userfriendly_duration_short(3700),
            UpdaterPluginsManager::tr("Terminate")};
}

const QStringList English{"Less than a minute", "1h1m", "Terminate"};
const QStringList French{"Moins d'une minute", "1 h 1 min", "Arrêter"};
const QStringList German{"Weniger als eine Minute", "1 Std. 1 Min.", "Abbrechen"};

/// A label that takes its library text again on every language change, as a widget of the launcher does.
class Label : public QLabel
{
public:
    Label() { setText(tv_seconds_to_userfriendly_duration(30)); }
    QStringList seen; ///< its text after each language change

protected:
    void changeEvent(QEvent* event) override
    {
        if (event->type() == QEvent::LanguageChange) {
            setText(tv_seconds_to_userfriendly_duration(30));
            seen.append(text());
        }
        QLabel::changeEvent(event);
    }
};

/// A plugin host with the i18n plugin and the compiled translations, and a settings manager that the test holds.
struct I18nHost : Host
{
    UpdaterSettingsManager* settings = nullptr;

    /// Loads the plugin with "i18n.lang" set to `language` (unset when null); its service, or null.
    II18n* start(const QString& language)
    {
        addBundled(dir, "i18n");
        addTranslations(dir.path());
        Host::start();
        // Registered objects belong to the API from now on.
        settings = new UpdaterSettingsManager;
        settings->addProvider(new MemorySettingsProvider(settings));
        if (!language.isNull())
            settings->setSetting("i18n.lang", language, false, false);
        manager->api()->addObject(settings);
        return manager->loadPlugins(true) ? manager->api()->getObject<II18n>() : nullptr;
    }

    void set(const QString& key, const QString& value) { manager->api()->setSetting(key, value); }
};

QTranslator* defaultTranslator()
{
    QTranslator* current = tv_default_translator(nullptr);
    tv_default_translator(current);
    return current;
}

} // namespace

class TestI18nPlugin : public QObject
{
    Q_OBJECT

    LogCapture m_log;

    QStringList warnings() { return m_log.lines("plugins/i18n/I18nPlugin").filter(QRegularExpression("^4 ")); }

private Q_SLOTS:
    void init() { m_log.take(); }
    void cleanup() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

    void startsIn_data()
    {
        QTest::addColumn<QString>("setting");
        QTest::addColumn<QString>("language");
        QTest::addColumn<QStringList>("texts");
        QTest::addColumn<bool>("warned");
        QTest::newRow("fr") << "fr" << "fr" << French << false;
        QTest::newRow("de") << "de" << "de" << German << false;
        QTest::newRow("a country's variant, spelt as a tag") << "fr-CA" << "fr" << French << false;
        QTest::newRow("unset: English") << QString() << "en" << English << false;
        QTest::newRow("unknown: English, and a warning") << "xx" << "en" << English << true;
    }

    void startsIn()
    {
        QFETCH(QString, setting);
        QFETCH(QString, language);
        {
            I18nHost host;
            II18n* i18n = host.start(setting);
            QVERIFY(i18n);
            // At once, not later: plugins loaded after this one show their first texts translated.
            QTEST(libraryTexts(), "texts");
            QCOMPARE(i18n->language(), language);
            QCOMPARE(i18n->locale().language(), QLocale(language).language());
            QCOMPARE(i18n->availableLanguages(), QStringList({"de", "en", "fr"}));
            QCOMPARE(i18n->translate("QObject", "More than an hour"),
                     language == "en" ? "More than an hour" : language == "fr" ? "Plus d'une heure" : "Mehr als eine Stunde");
            QVERIFY(defaultTranslator());
            const QStringList warned = warnings();
            QCOMPARE(warned.size(), int(QTest::currentDataTag() == QByteArray("unknown: English, and a warning")));
            if (!warned.isEmpty())
                QVERIFY2(warned.first().contains("No translations into xx"), qPrintable(warned.first()));
        }
        // The host is gone with the plugin: the sources' texts again, and no default translator left behind.
        QCOMPARE(libraryTexts(), English);
        QVERIFY(!defaultTranslator());
    }

    void followsTheSettingWhileRunning()
    {
        I18nHost host;
        II18n* i18n = host.start("fr");
        QVERIFY(i18n);
        Label label;
        label.show();
        QCOMPARE(label.text(), French.first());

        host.set("i18n.lang", "de");
        QTRY_COMPARE(label.text(), German.first());
        // Every language change that reached the widget found the new texts in place.
        QCOMPARE(label.seen, QStringList(label.seen.size(), German.first()));
        QCOMPARE(libraryTexts(), German);
        QCOMPARE(i18n->language(), "de");

        host.set("i18n.country", "at");
        QCOMPARE(i18n->locale(), QLocale("de_AT"));

        // Asked through the service: a language on offer is taken, another one changes nothing.
        QVERIFY(i18n->setLanguage("fr"));
        QTRY_COMPARE(label.text(), French.first());
        QVERIFY(!i18n->setLanguage("xx"));
        QTest::qWait(50);
        QCOMPARE(i18n->language(), "fr");
        QVERIFY(warnings().isEmpty());

        // A setting without translations falls back to English, with a warning.
        host.set("i18n.lang", "xx");
        QTRY_COMPARE(label.text(), English.first());
        QCOMPARE(warnings().size(), 1);
        QCOMPARE(i18n->language(), "en");
    }

    void switchesSettleOnTheLast()
    {
        I18nHost host;
        II18n* i18n = host.start("fr");
        QVERIFY(i18n);
        // Asked for in turn before any file is read: only the last one counts, though it is the language of now.
        for (const QString language : {"de", "fr", "de", "fr"})
            host.set("i18n.lang", language);
        QTest::qWait(100);
        QCOMPARE(libraryTexts(), French);
        QCOMPARE(i18n->language(), "fr");
        host.set("i18n.lang", "de");
        QTRY_COMPARE(libraryTexts(), German);
    }

    void unloadedPluginLeavesEnglish()
    {
        I18nHost host;
        QVERIFY(host.start("de"));
        QCOMPARE(libraryTexts(), German);
        UpdaterPluginInfo* plugin = host.record("i18n");
        QSignalSpy unloaded(plugin, &UpdaterPluginInfo::unloaded);
        QVERIFY(host.manager->unloadPlugin(plugin));
        QVERIFY(unloaded.wait());
        QVERIFY(!libraryMapped(host.dir.library("i18n")));
        QCOMPARE(libraryTexts(), English);
        QVERIFY(!defaultTranslator());
    }

    void launcherSpeaksGerman()
    {
        QTemporaryDir home;
        PluginDir plugins;
        for (const char* name : {"settings", "console", "i18n"})
            addBundled(plugins, name);
        addTranslations(plugins.path());
        const auto run = testsupport::runProcess(UPDATER_EXECUTABLE,
                                                 {"--no-gui", "--plugin-dir=" + plugins.path(), "--quit-after=0", "--i18n.lang=de"},
                                                 {"HOME=" + home.path(), "XDG_CONFIG_HOME"});
        QVERIFY2(run.exitedWith(0), (run.out + run.err).constData());
        const QStringList lines = QString::fromUtf8(run.out).split('\n');
        const QString started = QString("[console] updater %1 (%2) gestartet").arg(UPDATER_VERSION, UPDATER_REVISION);
        for (const QString& line : {started, QString("[console] geladene Plugins: settings, i18n, console"),
                                    QString("[console] „help“ eingeben für die Befehle"),
                                    QString("[console] Ende nach 0 Sekunden, wie gewünscht"), QString("[console] wird beendet")})
            QVERIFY2(lines.contains(line), qPrintable(line + " not in:\n" + run.out));
    }
};

QTEST_MAIN(TestI18nPlugin)
#include "tst_i18nplugin.moc"
