// The window plugin driven as a person drives it: mouse clicks and keys on the widgets, found by their object
// names, in a plugin host with the real settings, errors, notifications and i18n plugins. The engine is a stand-in
// plugin named "engine" (fixtures/ScriptedEnginePlugin.cpp) that replays the states and progress of the real
// engine's table (docs/engine.md) and records which of its slots the window called.
#include <libupdater/IUpdateEngine.h>
#include <libupdater/QtSingleApplication.h>
#include <libupdater/Updater.h>
#include <libupdater/UpdaterLogCollector.h>
#include <libupdater/vlc/VlcInstance.h>

#include "BundledPlugins.h"
#include "../support/LogCapture.h"

#include <DesktopSession.h>
#include <NginxServer.h>

#include <vantor/Keys.h>
#include <vantor/Operation.h>

#include <QtCore/QProcess>
#include <QtGui/QScreen>
#include <QtTest/QSignalSpy>
#include <QtTest/QTest>
#include <QtWidgets/QApplication>
#include <QtWidgets/QCheckBox>
#include <QtWidgets/QComboBox>
#include <QtWidgets/QDialog>
#include <QtWidgets/QLabel>
#include <QtWidgets/QLineEdit>
#include <QtWidgets/QListWidget>
#include <QtWidgets/QMenu>
#include <QtWidgets/QProgressBar>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QSpinBox>
#include <QtWidgets/QStackedWidget>
#include <QtWidgets/QSystemTrayIcon>

#include <unistd.h>

using namespace tvl::updater;
using State = IUpdateEngine::UpdateStateE;

namespace {

constexpr int Timeout = 20000;
/// Set in a run of this executable on an X server with a tray (see desktopUnderX).
constexpr char OnDisplay[] = "WINDOW_TEST_ON_DISPLAY";
/// The single-application id of the launcher a test plays: a second start is sent to it.
constexpr char AppIdVariable[] = "WINDOW_TEST_APP_ID";

QString applicationId()
{
    const QString id = qEnvironmentVariable(AppIdVariable);
    return id.isEmpty() ? QStringLiteral("tst_windowplugin-%1").arg(::getpid()) : id;
}

/// The test runs in a single application, as the launcher does with a display.
class TestApplication : public QtSingleApplication
{
public:
    TestApplication(int& argc, char** argv) : QtSingleApplication(applicationId(), argc, argv) {}
};

/// The scenario "second": a second start of the launcher, which hands its command line to the first.
int runSecondStart(const QByteArray& scenario, int argc, char** argv)
{
    QtSingleApplication application(applicationId(), argc, argv);
    if (scenario != "second")
        return 2;
    return application.isRunning() && application.sendMessage(QStringLiteral("--second"), 10000) ? 0 : 1;
}

/// A launcher with a window over the scripted engine, its preferences in a directory of its own.
struct Desktop
{
    QTemporaryDir config;
    QString preferences = config.filePath(QStringLiteral("Tarvel/updater"));
    Host host;
    IUpdateEngine* engine = nullptr;
    QWidget* window = nullptr;
    /// The launcher's log collector, as the host executable registers it.
    UpdaterLogCollector* collector = nullptr;

    Desktop()
    {
        QDir().mkpath(preferences);
        tv_set_user_preferences_path(preferences);
    }
    ~Desktop()
    {
        if (collector)
            tvl::Logger::instance()->removeOutput(collector);
        if (host.manager) {
            host.manager->quit(0);
            (void)QTest::qWaitFor([this] { return host.loaded().isEmpty(); }, Timeout);
        }
    }

    /// Loads the plugins and shows the window with the game "demo" in `state`.
    bool start(int state, const QVariantMap& info = {})
    {
        for (const char* name : {"settings", "window", "errors", "notifications", "i18n"})
            addBundled(host.dir, QString::fromLatin1(name));
        addTranslations(host.dir.path());
        host.dir.copy(QStringLiteral(SCRIPTED_ENGINE_PLUGIN), QStringLiteral("engine"));
        host.dir.write(QStringLiteral("engine.updaterplugin"),
                       QStringLiteral("name = \"engine\"\nsoft_depends = { \"settings\", \"errors\" }\n"));
        host.add({QStringLiteral("driver|soft_depends = { 'engine', 'errors' }")});
        if (!load())
            return false;
        QVariantMap fields{{"name", "Demo game"}, {"news", "Fresh levels"}};
        fields.insert(info);
        QMetaObject::invokeMethod(engine, "setInfo", Q_ARG(QString, "demo"), Q_ARG(QVariantMap, fields));
        setState(state);
        window = mainWindow();
        return window && QTest::qWaitForWindowExposed(window);
    }

    /// Loads the plugins over the real engine and network plugins, the settings coming from `script`.
    bool startWithEngine(const QString& script)
    {
        for (const char* name : {"window", "errors", "notifications", "engine", "network"})
            addBundled(host.dir, QString::fromLatin1(name));
        host.add({QStringLiteral("settings||script = '%1'").arg(script)});
        if (!load())
            return false;
        window = mainWindow();
        return window && QTest::qWaitForWindowExposed(window);
    }

    bool load()
    {
        host.start();
        collector = new UpdaterLogCollector(500);
        collector->setObjectName(QStringLiteral("logCollector"));
        tvl::Logger::instance()->addOutput(collector);
        api()->addObject(collector);
        if (!host.manager->loadPlugins(true))
            return false;
        engine = api()->getObject<IUpdateEngine>();
        return engine != nullptr;
    }

    UpdaterPluginApi* api() const { return host.manager->api(); }

    QWidget* mainWindow() const
    {
        QWidget* found = nullptr;
        for (QWidget* widget : QApplication::topLevelWidgets()) {
            if (widget->objectName() == QLatin1String("mainWindow") && !widget->testAttribute(Qt::WA_WState_Hidden))
                found = widget;
        }
        return found;
    }

    void setState(int state)
    {
        QMetaObject::invokeMethod(engine, "setState", Q_ARG(QString, "demo"), Q_ARG(int, state));
    }

    template<typename T>
    T* find(const char* name) const
    {
        return window ? window->findChild<T*>(QLatin1String(name)) : nullptr;
    }
    QPushButton* button() const { return find<QPushButton>("mainButton"); }
    QStringList calls() const { return host.journal->filter(QRegularExpression(QStringLiteral("^engine "))); }
    QString projectText() const
    {
        auto* list = find<QListWidget>("projectList");
        return list && list->count() > 0 ? list->item(0)->text() : QString();
    }
};

QDialog* openSettings(Desktop& desktop)
{
    QTest::mouseClick(desktop.find<QPushButton>("settingsButton"), Qt::LeftButton);
    auto* dialog = desktop.window->findChild<QDialog*>(QStringLiteral("settingsDialog"));
    return dialog && QTest::qWaitForWindowExposed(dialog) ? dialog : nullptr;
}

/// Selects the entry of `box` whose data is `value` with the arrow keys, as from the keyboard.
bool chooseWithKeys(QComboBox* box, const QVariant& value)
{
    const int target = box->findData(value);
    if (target < 0)
        return false;
    box->setFocus();
    while (box->currentIndex() != target)
        QTest::keyClick(box, box->currentIndex() < target ? Qt::Key_Down : Qt::Key_Up);
    return true;
}

/// Replaces the text of `field` by typing `value`, then goes on to the next field with Tab.
void typeInto(QWidget* field, const QString& value)
{
    field->setFocus();
    QTest::keyClick(field, Qt::Key_A, Qt::ControlModifier);
    QTest::keyClicks(field, value);
    QTest::keyClick(field, Qt::Key_Tab);
}

/// How many pixels of two pictures of one size differ.
qsizetype differingPixels(const QImage& a, const QImage& b)
{
    if (a.size() != b.size())
        return qsizetype(a.width()) * a.height() + 1;
    qsizetype count = 0;
    for (int y = 0; y < a.height(); ++y) {
        const auto* left = reinterpret_cast<const QRgb*>(a.constScanLine(y));
        const auto* right = reinterpret_cast<const QRgb*>(b.constScanLine(y));
        for (int x = 0; x < a.width(); ++x)
            count += qRed(left[x]) != qRed(right[x]) || qGreen(left[x]) != qGreen(right[x]) || qBlue(left[x]) != qBlue(right[x]);
    }
    return count;
}

} // namespace

class TestWindowPlugin : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        // A session bus of the test's own, without a notification service: notifications end up in the log.
        QVERIFY2(m_bus.start(), qPrintable(m_bus.error()));
        qputenv("DBUS_SESSION_BUS_ADDRESS", m_bus.address().toUtf8());
    }

    void cleanup() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

    void mainButtonFollowsTheState_data()
    {
        QTest::addColumn<int>("state");
        QTest::addColumn<QVariantMap>("info");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("call");
        const QVariantMap installed{{"installedVersion", "1.0"}, {"availableVersion", "2.0"}};
        const QVariantMap none{{"availableVersion", "1.0"}};
        QTest::newRow("not examined") << int(State::Initializing) << none << QStringLiteral("Please wait") << QStringLiteral("");
        QTest::newRow("checking, not installed") << int(State::CheckingUpdates) << none << QStringLiteral("Please wait") << QStringLiteral("");
        QTest::newRow("checking, installed") << int(State::CheckingUpdates | State::Executable) << installed << QStringLiteral("Play") << QStringLiteral("launch");
        QTest::newRow("not installed") << int(State::UpdatePending) << none << QStringLiteral("Install") << QStringLiteral("install");
        QTest::newRow("update available") << int(State::UpdatePending | State::Executable) << installed << QStringLiteral("Update") << QStringLiteral("install");
        QTest::newRow("up to date") << int(State::UpToDate | State::Executable) << installed << QStringLiteral("Play") << QStringLiteral("launch");
        QTest::newRow("damaged") << int(State::UpdateFailed) << installed << QStringLiteral("Repair") << QStringLiteral("repair");
        QTest::newRow("failed install") << int(State::UpdateFailed | State::UpdatePending) << none << QStringLiteral("Install") << QStringLiteral("install");
        QTest::newRow("failed update") << int(State::UpdateFailed | State::UpdatePending | State::Executable) << installed
                                       << QStringLiteral("Update") << QStringLiteral("install");
        QTest::newRow("updating") << int(State::Updating) << installed << QStringLiteral("Cancel") << QStringLiteral("pause");
        QTest::newRow("paused") << int(State::UpdatePending) << QVariantMap{{"paused", true}} << QStringLiteral("Resume") << QStringLiteral("resume");
        QTest::newRow("game runs") << int(State::UpdateBlockedByProcess) << installed << QStringLiteral("Running") << QStringLiteral("");
        QTest::newRow("game runs, update waits") << int(State::UpdateBlockedByProcess | State::UpdatePending) << installed
                                                 << QStringLiteral("Running") << QStringLiteral("");
    }
    void mainButtonFollowsTheState()
    {
        QFETCH(int, state);
        QFETCH(QVariantMap, info);
        QFETCH(QString, text);
        QFETCH(QString, call);
        Desktop desktop;
        QVERIFY(desktop.start(state, info));
        QPushButton* button = desktop.button();
        QVERIFY(button);
        QTRY_COMPARE(button->text(), text);
        QCOMPARE(button->isEnabled(), !call.isEmpty());
        QVERIFY(!button->accessibleName().isEmpty());
        QTest::mouseClick(button, Qt::LeftButton);
        // And once more from the keyboard: the list has the focus first, Tab goes to the button.
        desktop.find<QListWidget>("projectList")->setFocus();
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QCOMPARE(QApplication::focusWidget(), button->isEnabled() ? static_cast<QWidget*>(button) : QApplication::focusWidget());
        if (button->isEnabled())
            QTest::keyClick(button, Qt::Key_Space);
        // Cancel pauses, after which the button offers to resume.
        const QString again = call == QLatin1String("pause") ? QStringLiteral("resume") : call;
        const QStringList expected = call.isEmpty() ? QStringList()
                                                    : QStringList{"engine " + call + " demo", "engine " + again + " demo"};
        QTRY_COMPARE(desktop.calls(), expected);
    }

    void everyControlIsNamedAndReachedByTab()
    {
        Desktop desktop;
        QVERIFY(desktop.start(int(State::UpToDate | State::Executable), {{"installedVersion", "1.0"}}));
        desktop.api()->setSetting("dev_mode", true);
        QDialog* dialog = openSettings(desktop);
        QVERIFY(dialog);
        // Every control a person can reach from the keyboard tells a screen reader what it is.
        QStringList controls;
        for (QWidget* top : {static_cast<QWidget*>(desktop.window), static_cast<QWidget*>(dialog)}) {
            for (QWidget* widget : top->findChildren<QWidget*>()) {
                if (!widget->isVisibleTo(top) || !(widget->focusPolicy() & Qt::TabFocus) || widget->focusProxy()
                    || widget->inherits("QScrollBar") || widget->parentWidget()->inherits("QAbstractSpinBox")
                    || widget->parentWidget()->inherits("QComboBox"))
                    continue;
                QVERIFY2(!widget->accessibleName().isEmpty(),
                         qPrintable(QStringLiteral("%1 (%2) has no accessible name").arg(widget->objectName(),
                                                                                        widget->metaObject()->className())));
                controls.append(widget->objectName().isEmpty() ? QString::fromLatin1(widget->metaObject()->className())
                                                                : widget->objectName());
            }
        }
        // (The dialog belongs to the window: its controls come twice.)
        controls.removeDuplicates();
        controls.sort();
        QCOMPARE(controls, (QStringList{"browseButton", "checkButton", "clearErrorsButton", "closeSettingsButton", "closeToTrayBox",
                                        "connectionsBox", "devModeBox", "errorList", "installDirEdit", "languageBox", "logView",
                                        "mainButton", "newsView", "pluginList", "projectList", "rateLimitBox", "removeErrorButton",
                                        "settingsButton"}));
        dialog->close();
        // Tab goes from the games through the main controls in the order they are read.
        desktop.window->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(desktop.window));
        desktop.find<QListWidget>("projectList")->setFocus();
        QStringList order;
        for (int step = 0; step < 4; ++step) {
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
            order.append(QApplication::focusWidget()->objectName());
        }
        QCOMPARE(order, (QStringList{"mainButton", "newsView", "checkButton", "settingsButton"}));
    }

    void cancelMidwayPauses()
    {
        Desktop desktop;
        QVERIFY(desktop.start(State::UpdatePending, {{"availableVersion", "1.0"}}));
        QTest::mouseClick(desktop.button(), Qt::LeftButton);
        QCOMPARE(desktop.calls(), QStringList{"engine install demo"});
        // What the real engine emits while it installs: Updating, then progress a few times a second.
        desktop.setState(State::Updating);
        QMetaObject::invokeMethod(desktop.engine, "sendProgress", Q_ARG(QString, "demo"),
                                  Q_ARG(int, tvl::vantor::Progress::Downloading), Q_ARG(qlonglong, 512 * 1024),
                                  Q_ARG(qlonglong, 2048 * 1024), Q_ARG(double, 20 * 1024.0), Q_ARG(qlonglong, 90));
        auto* bar = desktop.find<QProgressBar>("progressBar");
        auto* text = desktop.find<QLabel>("progressText");
        QTRY_VERIFY(bar->isVisible());
        QCOMPARE(bar->value(), bar->maximum() / 4);
        QVERIFY2(text->text().contains("Downloading") && text->text().contains("Approximately 1 minute(s)")
                     && text->text().contains("/s"),
                 qPrintable(text->text()));
        QVERIFY(desktop.projectText().contains("Working on its files"));
        QCOMPARE(desktop.button()->text(), QStringLiteral("Cancel"));
        QTest::mouseClick(desktop.button(), Qt::LeftButton);
        QCOMPARE(desktop.calls(), (QStringList{"engine install demo", "engine pause demo"}));
        // Paused, it offers to go on; the progress is gone.
        QTRY_COMPARE(desktop.button()->text(), QStringLiteral("Resume"));
        QVERIFY(!bar->isVisible());
        QVERIFY(desktop.projectText().contains("Not installed"));
    }

    void engineErrorsInDeveloperModeAndAsNotification()
    {
        LogCapture log;
        Desktop desktop;
        QVERIFY(desktop.start(int(State::UpToDate | State::Executable), {{"installedVersion", "1.0"}}));
        auto* panel = desktop.find<QWidget>("developerPanel");
        QVERIFY(panel && !panel->isVisible());
        desktop.api()->setSetting("dev_mode", true);
        QTRY_VERIFY(panel->isVisible());
        auto* errors = desktop.find<QListWidget>("errorList");
        desktop.api()->callInPlugin("driver", "postError", Q_ARG(int, 0x04080106), Q_ARG(QString, "Some files are damaged"),
                                    Q_ARG(QString, "data/blob"));
        QTRY_COMPARE(errors->count(), 1);
        QVERIFY(errors->item(0)->text().contains("U04080106"));
        QVERIFY(errors->item(0)->text().contains("Some files are damaged"));
        QCOMPARE(errors->item(0)->toolTip(), QStringLiteral("data/blob"));
        // The log view shows what the launcher logs.
        TVL_LOG(tvl::Logger::Warning) << "a line for the log view";
        tvl::Logger::instance()->flush();
        auto* logView = desktop.find<QWidget>("logView");
        QTRY_VERIFY(logView->property("plainText").toString().contains("a line for the log view"));
        // Hidden, the window notifies errors; shown, it did not (notifications come in order, so the first error
        // would have been notified before the second).
        desktop.window->hide();
        desktop.api()->callInPlugin("driver", "postError", Q_ARG(int, 0x04020001), Q_ARG(QString, "The server cannot be reached"),
                                    Q_ARG(QString, QString()));
        QList<LogCapture::Record> records;
        QTRY_VERIFY_WITH_TIMEOUT(hasNotification(records += log.take(), "The server cannot be reached"), Timeout);
        QVERIFY(!hasNotification(records, "Some files are damaged"));
        QTRY_COMPARE(errors->count(), 2);
        // The user removes the newest error.
        errors->setCurrentRow(0);
        QTest::mouseClick(desktop.find<QPushButton>("removeErrorButton"), Qt::LeftButton);
        QTRY_COMPARE(errors->count(), 1);
        QVERIFY(errors->item(0)->text().contains("U04080106"));
    }

    void notifiesTheEndOfAnUpdateWhenAway_data()
    {
        QTest::addColumn<QString>("window");
        QTest::addColumn<bool>("success");
        QTest::addColumn<QString>("notification");
        QTest::newRow("shown, done") << "shown" << true << QString();
        QTest::newRow("hidden, done") << "hidden" << true << "Demo game is up to date - Version 2.0 is installed.";
        QTest::newRow("minimised, done") << "minimised" << true << "Demo game is up to date - Version 2.0 is installed.";
        QTest::newRow("hidden, failed") << "hidden" << false << "Demo game was not updated - scripted failure";
        QTest::newRow("shown, failed") << "shown" << false << QString();
    }
    void notifiesTheEndOfAnUpdateWhenAway()
    {
        QFETCH(QString, window);
        QFETCH(bool, success);
        QFETCH(QString, notification);
        LogCapture log;
        Desktop desktop;
        QVERIFY(desktop.start(int(State::Updating), {{"installedVersion", "1.0"}}));
        if (window == QLatin1String("hidden"))
            desktop.window->hide();
        else if (window == QLatin1String("minimised"))
            desktop.window->showMinimized();
        QTRY_COMPARE(desktop.window->isMinimized(), window == QLatin1String("minimised"));
        const int after = int(success ? State::UpToDate | State::Executable : State::UpdateFailed | State::UpdatePending | State::Executable);
        QMetaObject::invokeMethod(desktop.engine, "finish", Q_ARG(QString, "demo"), Q_ARG(bool, success), Q_ARG(QString, "2.0"),
                                  Q_ARG(int, after));
        // The status line says it in the window in every case.
        QCOMPARE(desktop.find<QLabel>("statusText")->text(),
                 success ? QStringLiteral("Demo game: version 2.0 is installed.") : QStringLiteral("Demo game: scripted failure"));
        // Then a marker: an update that ends while the window is hidden, which is notified. The notifications come in
        // order, so the marker alone shows that the first one made none.
        desktop.window->hide();
        QMetaObject::invokeMethod(desktop.engine, "finish", Q_ARG(QString, "demo"), Q_ARG(bool, true), Q_ARG(QString, "9.9"),
                                  Q_ARG(int, int(State::UpToDate | State::Executable)));
        QStringList expected = notification.isEmpty() ? QStringList() : QStringList{notification};
        expected.append(QStringLiteral("Demo game is up to date - Version 9.9 is installed."));
        QStringList notices;
        QVERIFY(QTest::qWaitFor([&] {
            for (const LogCapture::Record& record : log.take()) {
                if (record.message.startsWith("Notification:"))
                    notices.append(record.message.mid(14));
            }
            return notices.size() >= expected.size();
        }, Timeout));
        QCOMPARE(notices, expected);
    }

    void languageSwitchRetranslates()
    {
        Desktop desktop;
        QVERIFY(desktop.start(int(State::UpToDate | State::Executable), {{"installedVersion", "1.0"}}));
        QCOMPARE(desktop.button()->text(), QStringLiteral("Play"));
        QDialog* dialog = openSettings(desktop);
        QVERIFY(dialog);
        QCOMPARE(dialog->windowTitle(), QStringLiteral("Settings"));
        QVERIFY(chooseWithKeys(dialog->findChild<QComboBox*>("languageBox"), "fr"));
        QTRY_COMPARE_WITH_TIMEOUT(desktop.button()->text(), QStringLiteral("Jouer"), Timeout);
        QCOMPARE(dialog->windowTitle(), QStringLiteral("Paramètres"));
        QCOMPARE(desktop.find<QPushButton>("settingsButton")->text(), QStringLiteral("&Paramètres..."));
        QVERIFY2(desktop.projectText().contains(QStringLiteral("À jour")), qPrintable(desktop.projectText()));
        QCOMPARE(desktop.api()->getSetting("i18n.lang").toString(), QStringLiteral("fr"));
        QVERIFY(chooseWithKeys(dialog->findChild<QComboBox*>("languageBox"), "de"));
        QTRY_COMPARE_WITH_TIMEOUT(desktop.button()->text(), QStringLiteral("Spielen"), Timeout);
        QCOMPARE(desktop.window->windowTitle(), QStringLiteral("Spiele-Launcher"));
    }

    void settingsAreReadByTheNextLauncher()
    {
        Desktop desktop;
        QVERIFY(desktop.start(int(State::UpToDate | State::Executable), {{"installedVersion", "1.0"}}));
        QDialog* dialog = openSettings(desktop);
        QVERIFY(dialog);
        typeInto(dialog->findChild<QSpinBox*>("rateLimitBox"), "512");
        typeInto(dialog->findChild<QSpinBox*>("connectionsBox"), "2");
        typeInto(dialog->findChild<QLineEdit*>("installDirEdit"), desktop.config.filePath("games/demo"));
        auto* plugins = dialog->findChild<QListWidget*>("pluginList");
        const QList<QListWidgetItem*> notifications = plugins->findItems("notifications", Qt::MatchExactly);
        QCOMPARE(notifications.size(), 1);
        plugins->setFocus();
        plugins->setCurrentItem(notifications.first());
        QTest::keyClick(plugins, Qt::Key_Space);
        QCOMPARE(notifications.first()->checkState(), Qt::Unchecked);
        // Tab goes from the list to the two check boxes; Space ticks them.
        QTest::keyClick(plugins, Qt::Key_Tab);
        QCOMPARE(QApplication::focusWidget()->objectName(), QStringLiteral("devModeBox"));
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QCOMPARE(QApplication::focusWidget()->objectName(), QStringLiteral("closeToTrayBox"));
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
        // At once in this launcher...
        QCOMPARE(desktop.api()->getSetting("network.rate_limit").toInt(), 512);
        QVERIFY(dialog->findChild<QCheckBox*>("devModeBox")->isChecked());
        QCOMPARE(desktop.api()->getSetting("dev_mode").toBool(), true);
        QTRY_VERIFY(desktop.find<QWidget>("developerPanel")->isVisible());

        // ...and in the next one, from the user's preferences.
        QProcess next;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("XDG_CONFIG_HOME", desktop.config.path());
        next.setProcessEnvironment(environment);
        next.start(QStringLiteral(UPDATER_EXECUTABLE),
                   {"--no-gui", "--plugin-dir=" + desktop.host.dir.path(),
                    "--print-settings=network.rate_limit,network.max_connections,projects.demo.dir,plugins.disable,dev_mode,"
                    "ui.close_to_tray"});
        QVERIFY(next.waitForFinished(Timeout));
        QCOMPARE(next.exitCode(), 0);
        const QStringList lines = QString::fromUtf8(next.readAllStandardOutput()).split('\n');
        for (const QString& expected : {QStringLiteral("network.rate_limit=512"), QStringLiteral("network.max_connections=2"),
                                        "projects.demo.dir=" + desktop.config.filePath("games/demo"),
                                        QStringLiteral("plugins.disable=notifications"), QStringLiteral("dev_mode=true"),
                                        QStringLiteral("ui.close_to_tray=true")})
            QVERIFY2(lines.contains(expected), qPrintable(expected + " not in:\n" + lines.join('\n')));
    }

    void comesBackFromBackgroundModeAtItsPlace()
    {
        Desktop desktop;
        QVERIFY(desktop.start(int(State::UpToDate | State::Executable), {{"installedVersion", "1.0"}}));
        desktop.window->setGeometry(123, 77, 880, 540);
        QTRY_COMPARE(desktop.window->geometry(), QRect(123, 77, 880, 540));
        // The game starts: the engine enters background mode and the window goes, the launcher staying.
        QTest::mouseClick(desktop.button(), Qt::LeftButton);
        QCOMPARE(desktop.calls(), QStringList{"engine launch demo"});
        desktop.api()->activateBackgroundMode(true);
        QTRY_VERIFY(!desktop.api()->pluginIsLoaded("window"));
        QVERIFY(!desktop.mainWindow());
        // Gone for good: its library too, as a game takes longer to play than the host takes to unload it.
        QTRY_VERIFY(!libraryMapped(desktop.host.dir.library("window")));
        QVERIFY(desktop.api()->pluginIsLoaded("settings"));
        // The game ends.
        desktop.api()->activateBackgroundMode(false);
        QVERIFY(desktop.api()->pluginIsLoaded("window"));
        desktop.window = desktop.mainWindow();
        QVERIFY(desktop.window);
        QTRY_COMPARE(desktop.window->geometry(), QRect(123, 77, 880, 540));
        QCOMPARE(desktop.button()->text(), QStringLiteral("Play"));
    }

    void closeToTrayKeepsTheLauncher_data()
    {
        QTest::addColumn<bool>("closeToTray");
        QTest::newRow("close to tray") << true;
        QTest::newRow("close quits") << false;
    }
    void closeToTrayKeepsTheLauncher()
    {
        QFETCH(bool, closeToTray);
        Desktop desktop;
        QVERIFY(desktop.start(int(State::UpToDate | State::Executable), {{"installedVersion", "1.0"}}));
        desktop.api()->setSetting("ui.close_to_tray", closeToTray);
        // The last window closed: the launcher quits (the event loop ends with 0) unless it stays in the tray.
        const int exitCode = runEventLoop([&] { desktop.window->close(); }, 3000);
        QCOMPARE(exitCode, closeToTray ? LoopTimedOut : 0);
        if (closeToTray) {
            QVERIFY(desktop.api()->pluginIsLoaded("window"));
            QVERIFY(desktop.api()->callInPlugin("window", "raiseWindow"));
            QTRY_VERIFY(desktop.window->isVisible());
        }
    }

    void installUpdateAndPlayWithTheRealEngine()
    {
        // The demo game in two versions, published into a repository that nginx serves.
        QTemporaryDir work;
        const QString repository = work.filePath("repository");
        QByteArray publicKey, secretKey;
        tvl::vantor::Keys::generate(&publicKey, &secretKey);
        const QByteArray game = "#!/bin/sh\nwhile [ ! -e \"$1\" ]; do sleep 0.05; done\n";
        for (const QString& version : {QStringLiteral("1"), QStringLiteral("2")}) {
            const QString bin = testsupport::writeFile(work.filePath("v" + version + "/bin/game"), game);
            QFile::setPermissions(bin, QFile::permissions(bin) | QFile::ExeOwner);
            testsupport::writeFile(work.filePath("v" + version + "/data/level"), QByteArray(200 * 1024, char('a' + version.toInt())));
        }
        const auto publish = [&](const QString& version) {
            tvl::vantor::Options options;
            options.sourceDirectory = work.filePath("v" + version.left(1));
            options.repositoryDirectory = repository;
            options.project = QStringLiteral("demo");
            options.channel = QStringLiteral("stable");
            options.version = version;
            options.secretKey = secretKey;
            tvl::vantor::Operation operation(tvl::vantor::Operation::Publish, options);
            QSignalSpy done(&operation, &tvl::vantor::Operation::finished);
            operation.start();
            return (!done.isEmpty() || done.wait(60000)) && operation.result() && operation.result()->success;
        };
        QDir().mkpath(repository);
        QVERIFY(publish("1.0"));
        testsupport::NginxServer server(repository);
        QString error;
        QVERIFY2(server.start(&error), qPrintable(error));
        const QString stop = work.filePath("stop-game");
        testsupport::writeFile(work.filePath("launcher.lua"), QStringLiteral(
            "update = { automatic = false, check_interval_minutes = 60 }\n"
            "projects = { demo = { name = 'Demo game', url = '%1', dir = '%2', keys = { '%3' },\n"
            "  executable = 'bin/game', arguments = { '%4' }, news = 'Fresh levels' } }\n")
            .arg(server.url().toString(), work.filePath("games/demo"), tvl::vantor::Keys::encodePublicKey(publicKey), stop).toUtf8());

        Desktop desktop;
        QVERIFY(desktop.startWithEngine(work.filePath("launcher.lua")));
        constexpr int EngineTimeout = 60000;
        QTRY_COMPARE_WITH_TIMEOUT(desktop.button()->text(), QStringLiteral("Install"), EngineTimeout);
        QCOMPARE(desktop.projectText(), QStringLiteral("Demo game\nNot installed"));
        QCOMPARE(desktop.find<QWidget>("newsView")->property("plainText").toString(), QStringLiteral("Fresh levels"));
        QTest::mouseClick(desktop.button(), Qt::LeftButton);
        QTRY_COMPARE_WITH_TIMEOUT(desktop.button()->text(), QStringLiteral("Play"), EngineTimeout);
        QVERIFY2(desktop.projectText().contains("version 1.0 - Up to date"), qPrintable(desktop.projectText()));
        QVERIFY(QFileInfo::exists(work.filePath("games/demo/bin/game")));

        QVERIFY(publish("2.0"));
        QTest::mouseClick(desktop.find<QPushButton>("checkButton"), Qt::LeftButton);
        QTRY_COMPARE_WITH_TIMEOUT(desktop.button()->text(), QStringLiteral("Update"), EngineTimeout);
        QVERIFY2(desktop.projectText().contains("Update 2.0 available"), qPrintable(desktop.projectText()));
        QTest::mouseClick(desktop.button(), Qt::LeftButton);
        QTRY_COMPARE_WITH_TIMEOUT(desktop.button()->text(), QStringLiteral("Play"), EngineTimeout);
        QVERIFY2(desktop.projectText().contains("version 2.0 - Up to date"), qPrintable(desktop.projectText()));
        QCOMPARE(testsupport::readFile(work.filePath("games/demo/data/level")), QByteArray(200 * 1024, 'c'));

        // Play: the game runs, the window goes while it runs and comes back where it was when it ends.
        desktop.window->setGeometry(140, 90, 900, 560);
        QTRY_COMPARE(desktop.window->geometry(), QRect(140, 90, 900, 560));
        QTest::mouseClick(desktop.button(), Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(!desktop.api()->pluginIsLoaded("window"), EngineTimeout);
        QVERIFY(!desktop.mainWindow());
        QTRY_VERIFY(!libraryMapped(desktop.host.dir.library("window")));
        QVERIFY(desktop.engine->projectState("demo").testFlag(IUpdateEngine::UpdateBlockedByProcess));
        testsupport::writeFile(stop, "");
        QTRY_VERIFY_WITH_TIMEOUT(desktop.api()->pluginIsLoaded("window"), EngineTimeout);
        desktop.window = desktop.mainWindow();
        QVERIFY(desktop.window);
        QTRY_COMPARE(desktop.window->geometry(), QRect(140, 90, 900, 560));
        QTRY_COMPARE_WITH_TIMEOUT(desktop.button()->text(), QStringLiteral("Play"), EngineTimeout);
    }

    void desktopUnderX()
    {
        if (qEnvironmentVariableIsEmpty(OnDisplay)) {
            testsupport::VirtualDisplay display;
            if (!display.start() || !display.startTray())
                QSKIP(qPrintable("no X server with a tray here: " + display.error()));
            // This very case again, in a run of this executable on that display.
            const QString id = QStringLiteral("tst_windowplugin-x-%1").arg(::getpid());
            const auto run = testsupport::runProcess(QCoreApplication::applicationFilePath(), {"desktopUnderX"},
                                                     {"DISPLAY=" + display.display(), "QT_QPA_PLATFORM=xcb",
                                                      QString(OnDisplay) + "=1", QString(AppIdVariable) + '=' + id});
            QVERIFY2(run.exitedWith(0), (run.out + run.err).constData());
            QVERIFY2(run.out.contains("PASS   : TestWindowPlugin::desktopUnderX()"), run.out.constData());
            return;
        }

        Desktop desktop;
        QVERIFY(desktop.start(int(State::UpToDate | State::Executable), {{"installedVersion", "1.0"}}));
        // The tray icon sits in trayer's tray, and the notifications plugin shows its messages on it.
        QTRY_VERIFY_WITH_TIMEOUT(QSystemTrayIcon::isSystemTrayAvailable(), 10000);
        QSystemTrayIcon* tray = nullptr;
        QObject* notifications = nullptr;
        for (const QPointer<QObject>& object : desktop.api()->objects()) {
            if (object && object->objectName() == QLatin1String("trayIcon"))
                tray = qobject_cast<QSystemTrayIcon*>(object);
            if (object && object->objectName() == QLatin1String("notifications"))
                notifications = object;
        }
        QVERIFY(tray && notifications);
        QTRY_VERIFY_WITH_TIMEOUT(!tray->geometry().isEmpty(), 10000);
        const auto route = [&] {
            QString route;
            QMetaObject::invokeMethod(notifications, "route", Q_RETURN_ARG(QString, route));
            return route;
        };
        QTRY_COMPARE_WITH_TIMEOUT(route(), QStringLiteral("tray"), 10000);
        QCOMPARE(tray->contextMenu()->objectName(), QStringLiteral("trayMenu"));
        QCOMPARE(tray->contextMenu()->actions().size(), 4);

        // Closed with close-to-tray, the launcher stays; a second start brings the window back.
        desktop.api()->setSetting("ui.close_to_tray", true);
        QProcess second;
        bool hiddenWhileSecondStarts = false;
        const int exitCode = runEventLoop([&] {
            desktop.window->close();
            QTimer::singleShot(300, [&] {
                hiddenWhileSecondStarts = !desktop.window->isVisible() && !desktop.api()->closingDown();
                QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
                environment.insert(testsupport::ScenarioVariable, "second");
                second.setProcessEnvironment(environment);
                second.start(QCoreApplication::applicationFilePath());
            });
            auto* check = new QTimer(&second);
            check->callOnTimeout([&] {
                if (second.state() == QProcess::NotRunning && second.exitStatus() == QProcess::NormalExit
                    && hiddenWhileSecondStarts && desktop.window->isVisible())
                    QCoreApplication::exit(second.exitCode());
            });
            check->start(50);
        }, Timeout);
        QVERIFY(hiddenWhileSecondStarts);
        QCOMPARE(exitCode, 0);
        QVERIFY(desktop.window->isVisible());
        QVERIFY(desktop.api()->pluginIsLoaded("window"));
    }

    void screenshotsOfTheMainStates()
    {
        if (qEnvironmentVariableIsEmpty(OnDisplay)) {
            testsupport::VirtualDisplay display;
            if (!display.start())
                QSKIP(qPrintable("no X server here: " + display.error()));
            // This very case again, in a run of this executable on that display.
            const QString id = QStringLiteral("tst_windowplugin-shots-%1").arg(::getpid());
            const auto run = testsupport::runProcess(QCoreApplication::applicationFilePath(), {"screenshotsOfTheMainStates"},
                                                     {"DISPLAY=" + display.display(), "QT_QPA_PLATFORM=xcb",
                                                      QString(OnDisplay) + "=1", QString(AppIdVariable) + '=' + id});
            QVERIFY2(run.exitedWith(0), (run.out + run.err).constData());
            QVERIFY2(run.out.contains("PASS   : TestWindowPlugin::screenshotsOfTheMainStates()"), run.out.constData());
            return;
        }

        // What the X server shows where the window is must be what the window paints, and each state must look
        // different. With SCREENSHOT_DIR set (scripts/screenshots), the pictures are kept there.
        struct Shot
        {
            const char* name;
            int state;
            QVariantMap info;
        };
        const QVariantMap common{{"banner", QStringLiteral(DEMO_BANNER)}, {"icon", QStringLiteral(DEMO_ICON)}};
        const QList<Shot> shots{
            {"installing", int(State::Updating), {}},
            {"up-to-date", int(State::UpToDate | State::Executable), {{"installedVersion", "1.0"}}},
            {"update-available", int(State::UpdatePending | State::Executable), {{"installedVersion", "1.0"}, {"availableVersion", "2.0"}}},
            {"error", int(State::UpdateFailed | State::UpdatePending), {}},
        };
        const QString keep = qEnvironmentVariable("SCREENSHOT_DIR");
        QList<QImage> taken;
        for (const Shot& shot : shots) {
            Desktop desktop;
            QVariantMap info = common;
            info.insert(shot.info);
            QVERIFY2(desktop.start(shot.state, info), shot.name);
            if (shot.state == int(State::Updating)) {
                QMetaObject::invokeMethod(desktop.engine, "sendProgress", Q_ARG(QString, "demo"),
                                          Q_ARG(int, int(tvl::vantor::Progress::Downloading)), Q_ARG(qlonglong, 61 << 20),
                                          Q_ARG(qlonglong, 183 << 20), Q_ARG(double, 7.5 * (1 << 20)), Q_ARG(qlonglong, 17));
            }
            if (shot.state & int(State::UpdateFailed)) {
                QMetaObject::invokeMethod(desktop.engine, "finish", Q_ARG(QString, "demo"), Q_ARG(bool, false), Q_ARG(QString, QString()),
                                          Q_ARG(int, shot.state),
                                          Q_ARG(QString, "The update server of Demo game cannot be reached. Check your internet connection."));
            }
            desktop.window->raise();
            desktop.window->activateWindow();
            QVERIFY(QTest::qWaitForWindowExposed(desktop.window));
            // Let the last repaint reach the X server.
            QTest::qWait(300);
            const QImage painted = desktop.window->grab().toImage().convertToFormat(QImage::Format_RGB32);
            const QRect area(desktop.window->mapToGlobal(QPoint(0, 0)), desktop.window->size());
            const QImage onScreen = desktop.window->screen()->grabWindow(0, area.x(), area.y(), area.width(), area.height())
                                        .toImage().convertToFormat(QImage::Format_RGB32);
            QCOMPARE(onScreen.size(), painted.size());
            QVERIFY2(differingPixels(onScreen, painted) == 0,
                     qPrintable(QStringLiteral("%1: %2 pixels differ").arg(shot.name).arg(differingPixels(onScreen, painted))));
            for (int i = 0; i < taken.size(); ++i)
                QVERIFY2(differingPixels(taken.at(i), onScreen) > 1000, qPrintable(QStringLiteral("%1 looks like %2").arg(shot.name, shots.at(i).name)));
            taken.append(onScreen);
            if (!keep.isEmpty())
                QVERIFY(onScreen.save(keep + QLatin1Char('/') + QLatin1String(shot.name) + QStringLiteral(".png")));
        }
    }

    void trayMenu()
    {
        Desktop desktop;
        QVERIFY(desktop.start(int(State::UpToDate | State::Executable), {{"installedVersion", "1.0"}}));
        QSystemTrayIcon* tray = nullptr;
        for (const QPointer<QObject>& object : desktop.api()->objects()) {
            if (object && object->objectName() == QLatin1String("trayIcon"))
                tray = qobject_cast<QSystemTrayIcon*>(object);
        }
        QVERIFY(tray && tray->contextMenu());
        QMenu* menu = tray->contextMenu();
        const auto action = [menu](const char* name) { return menu->findChild<QAction*>(QLatin1String(name)); };
        QVERIFY(action("toggleWindowAction") && action("checkUpdatesAction") && action("quitAction"));
        // The menu says what its first entry does now, and does it.
        Q_EMIT menu->aboutToShow();
        QCOMPARE(action("toggleWindowAction")->text(), QStringLiteral("&Hide the launcher"));
        action("toggleWindowAction")->trigger();
        QVERIFY(!desktop.window->isVisible());
        Q_EMIT menu->aboutToShow();
        QCOMPARE(action("toggleWindowAction")->text(), QStringLiteral("&Show the launcher"));
        action("toggleWindowAction")->trigger();
        QTRY_VERIFY(desktop.window->isVisible());
        action("checkUpdatesAction")->trigger();
        QCOMPARE(desktop.calls(), QStringList{"engine checkAll"});
        // Quit quits, also when closing the window would only hide it.
        desktop.api()->setSetting("ui.close_to_tray", true);
        const int exitCode = runEventLoop([&] { action("quitAction")->trigger(); }, Timeout);
        QCOMPARE(exitCode, 0);
    }

    void trailerLoops()
    {
        {
            VlcInstance probe;
            if (!probe.isLoaded())
                QSKIP("libvlc cannot be loaded here");
        }
        Desktop desktop;
        QVERIFY(desktop.start(int(State::UpToDate | State::Executable),
                              {{"installedVersion", "1.0"}, {"trailer", QStringLiteral(TRAILER_CLIP)}}));
        auto* media = desktop.find<QStackedWidget>("mediaStack");
        QWidget* view = desktop.find<QWidget>("trailerView");
        QCOMPARE(media->currentWidget(), view);
        // After the clip's end it starts again, and new frames come.
        QTRY_VERIFY_WITH_TIMEOUT(view->property("loops").toInt() >= 1, 30000);
        const int loops = view->property("loops").toInt();
        // The list refreshed (a game's setting changed) leaves the trailer playing on.
        desktop.api()->setSetting("projects.demo.news", "Newer levels");
        QVERIFY(view->property("loops").toInt() >= loops);
        QImage last = view->grab().toImage();
        int changes = 0;
        QVERIFY(QTest::qWaitFor([&] {
            const QImage now = view->grab().toImage();
            changes += now != last;
            last = now;
            return changes >= 3;
        }, Timeout));
        QTRY_VERIFY_WITH_TIMEOUT(view->property("loops").toInt() > loops, 30000);

        // Hidden (in the tray), the trailer pauses; shown again, it goes on.
        QTRY_VERIFY_WITH_TIMEOUT(view->property("playing").toBool(), Timeout);
        desktop.window->hide();
        QTRY_VERIFY_WITH_TIMEOUT(!view->property("playing").toBool(), Timeout);
        const int loopsWhileHidden = view->property("loops").toInt();
        desktop.window->show();
        QTRY_VERIFY_WITH_TIMEOUT(view->property("playing").toBool(), Timeout);
        QCOMPARE(view->property("loops").toInt(), loopsWhileHidden);
    }

private:
    static bool hasNotification(const QList<LogCapture::Record>& records, const char* text)
    {
        for (const LogCapture::Record& record : records) {
            if (record.message.contains("Notification:") && record.message.contains(QLatin1String(text)))
                return true;
        }
        return false;
    }

    testsupport::SessionBus m_bus;
};

TEST_MAIN_WITH_SCENARIOS(TestWindowPlugin, TestApplication, runSecondStart)
#include "tst_windowplugin.moc"
