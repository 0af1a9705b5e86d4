#pragma once

#include <libupdater/UpdaterPlugin.h>

#include <QtCore/QList>
#include <QtCore/QPointer>

QT_BEGIN_NAMESPACE
class QAction;
class QMenu;
class QSystemTrayIcon;
QT_END_NAMESPACE

class MainWindow;

/**
 * The launcher's face: the main window and the tray icon. While a game runs the launcher is in
 * background mode and this plugin is unloaded, the window's size and place kept in the user's
 * preferences ("ui.window_geometry") for when it comes back.
 */
class WindowPlugin : public tvl::updater::UpdaterPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID UPDATER_PLUGIN_IID)

public:
    ~WindowPlugin() override;

    bool init() override;
    void uninit() override;
    void objectAdded(QObject* object) override;
    void updaterEvent(tvl::updater::UpdaterPluginEventPtr event) override;
    /// 1 on entering background mode: the window goes away while the game runs.
    int backgroundModeActivated(bool activated) override;

public Q_SLOTS:
    /// Shows the window (again) and brings it to the front.
    void raiseWindow();
    /// The main window, for whoever drives it by name.
    QWidget* mainWindow() const;

private:
    void setUpTray();
    void retranslateTray();
    void toggleWindow();
    void quitLauncher();
    bool windowAway() const;
    void notify(const QString& title, const QString& text);
    void destroyUi();

    QPointer<MainWindow> m_window;
    QPointer<QSystemTrayIcon> m_tray;
    QMenu* m_trayMenu = nullptr;
    QAction* m_toggleAction = nullptr;
    QAction* m_checkAction = nullptr;
    QAction* m_quitAction = nullptr;
    QList<QPointer<QObject>> m_followed;
    bool m_quitting = false;
};
