#pragma once

#include "MainAction.h"

#include <libupdater/IUpdateEngine.h>

#include <QtCore/QHash>
#include <QtCore/QPointer>
#include <QtCore/QVariantMap>
#include <QtWidgets/QMainWindow>

QT_BEGIN_NAMESPACE
class QLabel;
class QListWidget;
class QProgressBar;
class QPushButton;
class QSplitter;
class QStackedWidget;
class QTextBrowser;
QT_END_NAMESPACE

namespace tvl::updater {
class IUpdaterErrorManager;
class UpdaterLogCollector;
class UpdaterPluginApi;
} // namespace tvl::updater

class DeveloperPanel;
class SettingsDialog;
class TrailerView;

/**
 * The launcher's main window: the games on the left; for the one selected, its banner or
 * trailer, its news, the progress of what the engine does with it and one button for what
 * comes next. The engine is driven through its plugin's slots, by name.
 */
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit MainWindow(tvl::updater::UpdaterPluginApi* api, QWidget* parent = nullptr);
    ~MainWindow() override;

    void setEngine(tvl::updater::IUpdateEngine* engine);
    void setErrorManager(tvl::updater::IUpdaterErrorManager* manager);
    void setLogCollector(tvl::updater::UpdaterLogCollector* collector);
    /// A setting changed (from the settings manager).
    void settingChanged(const QString& key);

    QString currentProject() const;
    MainAction currentAction() const { return m_action; }
    /// The name shown for `project`.
    QString displayName(const QString& project) const;
    void openSettings();
    /// Rebuilds the project list from the engine and the settings.
    void refreshProjects();

Q_SIGNALS:
    /// The user asked for a check of every game.
    void checkRequested();

protected:
    void changeEvent(QEvent* event) override;

private:
    QVariantMap info(const QString& project) const;
    void retranslate();
    void refreshProject(const QString& project);
    void showSelected();
    void updateButton();
    void updateDeveloperMode();
    void onState(const QString& project, tvl::updater::IUpdateEngine::UpdateState state);
    void onProgress(const tvl::vantor::Progress& progress);
    void onUpdated(const tvl::vantor::UpdateResultPtr& result);
    void runMainAction();
    void showProgressText();

    tvl::updater::UpdaterPluginApi* const m_api;
    QPointer<tvl::updater::IUpdateEngine> m_engine;
    QListWidget* m_projects;
    QLabel* m_projectsLabel;
    QLabel* m_title;
    QStackedWidget* m_media;
    QLabel* m_banner;
    TrailerView* m_trailer;
    QTextBrowser* m_news;
    QLabel* m_newsLabel;
    QPushButton* m_mainButton;
    QPushButton* m_settingsButton;
    QPushButton* m_checkButton;
    QProgressBar* m_progress;
    QLabel* m_progressText;
    QLabel* m_status;
    DeveloperPanel* m_developer;
    QSplitter* m_splitter;
    QPointer<SettingsDialog> m_settings;
    MainAction m_action = MainAction::Wait;
    /// The last progress of each project, so that the texts can be translated again.
    QHash<QString, tvl::vantor::Progress> m_lastProgress;
};
