#include "WindowPlugin.h"

#include "MainWindow.h"

#include <basix/Logger.h>

#include <libupdater/ISettingsManager.h>
#include <libupdater/IUpdateEngine.h>
#include <libupdater/IUpdaterErrorManager.h>
#include <libupdater/IUpdaterNotification.h>
#include <libupdater/QtSingleApplication.h>
#include <libupdater/UiUtils.h>
#include <libupdater/UpdaterLogCollector.h>
#include <libupdater/UpdaterPluginApi.h>
#include <libupdater/UpdaterPluginErrorEvent.h>

#include <QtCore/QEvent>
#include <QtWidgets/QApplication>
#include <QtWidgets/QMenu>
#include <QtWidgets/QSystemTrayIcon>

using namespace tvl::updater;

namespace {
const QString GeometryKey = QStringLiteral("ui.window_geometry");
const QString CloseToTrayKey = QStringLiteral("ui.close_to_tray");

/// Retranslates the tray menu when the language changes (the menu is no child of the window).
class LanguageWatcher : public QObject
{
public:
    LanguageWatcher(std::function<void()> onChange, QObject* parent)
        : QObject(parent)
        , m_onChange(std::move(onChange))
    {
    }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::LanguageChange)
            m_onChange();
        return QObject::eventFilter(watched, event);
    }

private:
    std::function<void()> m_onChange;
};
} // namespace

WindowPlugin::~WindowPlugin()
{
    destroyUi();
}

bool WindowPlugin::init()
{
    if (api()->applicationOptions().testFlag(UpdaterPluginApi::NoGui) || !qobject_cast<QApplication*>(qApp)) {
        setLoadingErrorString(QStringLiteral("QUIT_SILENTLY"));
        return false;
    }
    m_quitting = false;
    m_window = new MainWindow(api());
    connect(m_window, &MainWindow::checkRequested, this, [this] { api()->callInPlugin(QStringLiteral("engine"), "checkAll"); });
    const QByteArray geometry = QByteArray::fromBase64(api()->getSetting(GeometryKey).toString().toLatin1());
    if (geometry.isEmpty() || !m_window->restoreGeometry(geometry))
        tv_center_on_screen(*m_window);
    setUpTray();
    if (auto* single = qobject_cast<QtSingleApplication*>(qApp)) {
        // A second start of the launcher brings this window up (and shows it when in the tray).
        single->setActivationWindow(m_window, true);
    }
    m_window->show();
    return true;
}

void WindowPlugin::uninit()
{
    if (m_window) {
        api()->setSetting(GeometryKey, QString::fromLatin1(m_window->saveGeometry().toBase64()),
                          SettingsAttributes(AllScopes) | PersistSetting | SilentSetting);
        if (auto* settings = api()->getObject<ISettingsManager>())
            settings->save();
    }
    destroyUi();
    UpdaterPlugin::uninit();
}

void WindowPlugin::destroyUi()
{
    // Everything of this library's making goes now: the library itself is unloaded next.
    if (auto* single = qobject_cast<QtSingleApplication*>(qApp); single && single->activationWindow() == m_window)
        single->setActivationWindow(nullptr);
    if (m_tray) {
        api()->removeObject(m_tray);
        delete m_tray;
    }
    delete m_trayMenu;
    m_trayMenu = nullptr;
    if (m_window) {
        // Going away for background mode is no last window closed: the launcher stays.
        m_window->setAttribute(Qt::WA_QuitOnClose, false);
        m_window->hide();
        delete m_window;
    }
}

void WindowPlugin::setUpTray()
{
    m_trayMenu = new QMenu;
    m_trayMenu->setObjectName(QStringLiteral("trayMenu"));
    m_toggleAction = m_trayMenu->addAction(QString(), this, &WindowPlugin::toggleWindow);
    m_toggleAction->setObjectName(QStringLiteral("toggleWindowAction"));
    m_checkAction = m_trayMenu->addAction(tv_icon(Icons::ResetIcon), QString(), this,
                                          [this] { api()->callInPlugin(QStringLiteral("engine"), "checkAll"); });
    m_checkAction->setObjectName(QStringLiteral("checkUpdatesAction"));
    m_trayMenu->addSeparator();
    m_quitAction = m_trayMenu->addAction(tv_icon(Icons::QuitIcon), QString(), this, &WindowPlugin::quitLauncher);
    m_quitAction->setObjectName(QStringLiteral("quitAction"));
    connect(m_trayMenu, &QMenu::aboutToShow, this, &WindowPlugin::retranslateTray);
    m_trayMenu->installEventFilter(new LanguageWatcher([this] { retranslateTray(); }, m_trayMenu));
    m_window->installEventFilter(new LanguageWatcher([this] { retranslateTray(); }, m_trayMenu));

    m_tray = new QSystemTrayIcon(tv_icon(Icons::OptionsIcon));
    m_tray->setObjectName(QStringLiteral("trayIcon"));
    m_tray->setContextMenu(m_trayMenu);
    connect(m_tray, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::DoubleClick)
            toggleWindow();
    });
    retranslateTray();
    m_tray->show();
    // The notifications plugin shows its messages on it when the desktop has no notification service.
    api()->addObject(m_tray);
}

void WindowPlugin::retranslateTray()
{
    if (!m_tray)
        return;
    m_toggleAction->setText(windowAway() ? tr("&Show the launcher") : tr("&Hide the launcher"));
    m_checkAction->setText(tr("&Check for updates"));
    m_quitAction->setText(tr("&Quit"));
    m_tray->setToolTip(tr("Game launcher"));
}

void WindowPlugin::toggleWindow()
{
    if (windowAway())
        raiseWindow();
    else if (m_window)
        m_window->hide();
    retranslateTray();
}

void WindowPlugin::raiseWindow()
{
    if (!m_window)
        return;
    m_window->show();
    m_window->setWindowState((m_window->windowState() & ~Qt::WindowMinimized) | Qt::WindowActive);
    m_window->raise();
    m_window->activateWindow();
    retranslateTray();
}

QWidget* WindowPlugin::mainWindow() const
{
    return m_window;
}

void WindowPlugin::quitLauncher()
{
    m_quitting = true;
    api()->quit();
}

bool WindowPlugin::windowAway() const
{
    return !m_window || !m_window->isVisible() || m_window->isMinimized();
}

void WindowPlugin::objectAdded(QObject* object)
{
    if (!m_window || m_followed.contains(object))
        return;
    if (auto* engine = qobject_cast<IUpdateEngine*>(object)) {
        m_followed.append(object);
        m_window->setEngine(engine);
        connect(engine, &IUpdateEngine::projectUpdated, this, [this](const tvl::vantor::UpdateResultPtr& result) {
            if (!result || !windowAway() || !m_window)
                return;
            const QString name = m_window->displayName(result->project);
            if (result->success)
                notify(tr("%1 is up to date").arg(name), tr("Version %1 is installed.").arg(result->version));
            else
                notify(tr("%1 was not updated").arg(name), result->errorString);
        });
    } else if (auto* errors = qobject_cast<IUpdaterErrorManager*>(object)) {
        m_followed.append(object);
        m_window->setErrorManager(errors);
    } else if (auto* collector = qobject_cast<UpdaterLogCollector*>(object)) {
        m_followed.append(object);
        m_window->setLogCollector(collector);
    } else if (auto* settings = qobject_cast<ISettingsManager*>(object)) {
        m_followed.append(object);
        connect(settings, &ISettingsManager::settingChanged, this, [this](const QString& key) {
            if (m_window)
                m_window->settingChanged(key);
        });
        m_window->refreshProjects();
    }
}

void WindowPlugin::updaterEvent(UpdaterPluginEventPtr event)
{
    if (!event)
        return;
    switch (event->type()) {
    case UpdaterPluginEvent::AboutToQuit:
        // The last window closed: with close-to-tray the launcher goes on in the tray.
        if (!m_quitting && api()->getSetting(CloseToTrayKey, false).toBool())
            event->accept();
        break;
    case UpdaterPluginEvent::ErrorEvent:
        if (const auto* errorEvent = dynamic_cast<const UpdaterPluginErrorEvent*>(event.data()); errorEvent && windowAway()) {
            const UpdaterError error = errorEvent->error();
            notify(tr("Error %1").arg(error.errorId()), error.text());
        }
        break;
    case UpdaterPluginEvent::AllPluginsLoadedEvent:
        if (m_window)
            m_window->refreshProjects();
        break;
    default:
        break;
    }
}

int WindowPlugin::backgroundModeActivated(bool activated)
{
    return activated ? 1 : 0;
}

void WindowPlugin::notify(const QString& title, const QString& text)
{
    IUpdaterNotification* notification = nullptr;
    for (const QPointer<QObject>& object : api()->objects()) {
        if (object && object->objectName() == QLatin1String("notifications")) {
            QMetaObject::invokeMethod(object, "createNotification",
                                      Q_RETURN_ARG(tvl::updater::IUpdaterNotification*, notification),
                                      Q_ARG(QObject*, this));
        }
    }
    if (!notification) {
        TVL_LOG(tvl::Logger::Notice) << title << text;
        return;
    }
    notification->setTitle(title);
    notification->setText(text);
    notification->setHint(IUpdaterNotification::UpdaterNotificationHintNotificationName, QStringLiteral("launcher.update"));
    notification->setHint(IUpdaterNotification::UpdaterNotificationHintFallbackActionName, tr("Show"));
    connect(notification, &IUpdaterNotification::clicked, this, &WindowPlugin::raiseWindow);
    connect(notification, &IUpdaterNotification::closed, notification, &QObject::deleteLater);
    notification->show();
}
