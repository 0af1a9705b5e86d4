#pragma once

#include "ProjectConfig.h"

#include <libupdater/IUpdateEngine.h>
#include <libupdater/UpdaterError.h>

#include <vantor/Operation.h>

#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtCore/QTimer>
#include <QtCore/QVariantMap>

class GameProcess;

/**
 * One game: what is installed, what the repository offers, the one operation of the update
 * library that runs on it at a time, and the game's process once launched.
 *
 * Its state (the bits of IUpdateEngine::UpdateState) follows from those facts as docs/engine.md
 * tabulates them. While the game runs, nothing that changes its files starts: such an operation
 * waits (UpdateBlockedByProcess) and starts by itself once the game has ended.
 */
class Project : public QObject
{
    Q_OBJECT

public:
    enum class Activity { None, Examining, Checking, Installing, Updating, Verifying, Repairing, RollingBack, Uninstalling, SettingChannel };
    Q_ENUM(Activity)

    using OptionsFactory = std::function<tvl::vantor::Options(const ProjectConfig&)>;

    Project(const ProjectConfig& config, OptionsFactory options, QObject* parent = nullptr);
    ~Project() override;

    QString id() const { return m_config.id; }
    const ProjectConfig& config() const { return m_config; }
    void setConfig(const ProjectConfig& config);

    tvl::updater::IUpdateEngine::UpdateState state() const;
    Activity activity() const { return m_activity; }
    bool isBusy() const { return m_activity != Activity::None; }
    bool isInstalled() const { return m_installed; }
    bool updateAvailable() const { return m_updateAvailable; }
    bool isPinned() const { return m_pinned; }
    bool gameRunning() const;
    QString installedVersion() const { return m_installedVersion; }
    QString availableVersion() const { return m_availableVersion; }
    bool rollbackPossible() const { return m_rollbackPossible; }
    bool isPaused() const { return m_paused != Activity::None; }

    /// Reads what is installed, then asks the repository what it offers.
    bool examine();
    bool check();
    /// Installs, or updates what is installed.
    bool install();
    bool verify();
    bool repair();
    bool rollback();
    bool uninstall();
    bool setChannel(const QString& channel);
    /// Stops the running operation, keeping what was fetched; resume() goes on with it.
    bool pause();
    bool resume();
    void cancel();
    /// Starts the game; false when it is not installed and intact, or already runs.
    bool launch();

Q_SIGNALS:
    void stateChanged(tvl::updater::IUpdateEngine::UpdateState state);
    /// What is known of the project changed (versions, channel, settings).
    void changed();
    void progress(tvl::vantor::Progress progress);
    void computationProgress(double fraction);
    /// An install, update, repair, rollback, uninstall or verification ended.
    void operationFinished(tvl::vantor::UpdateResultPtr result);
    void failed(tvl::updater::UpdaterError error);
    /// The examination or check that started a round of checks ended (either way).
    void checked();
    void gameStarted();
    void gameEnded();

private:
    bool start(Activity activity);
    bool startChanging(Activity activity);
    void onFinished(Activity activity, const tvl::vantor::UpdateResultPtr& result);
    void refreshState();
    bool processRunsFromDirectory() const;
    void report(const tvl::updater::UpdaterError& error);

    ProjectConfig m_config;
    OptionsFactory m_options;
    QPointer<tvl::vantor::Operation> m_operation;
    Activity m_activity = Activity::None;
    Activity m_paused = Activity::None;
    /// A changing operation that waits for the game to end.
    Activity m_deferred = Activity::None;
    QString m_requestedChannel;
    bool m_installAfterCheck = false;
    QTimer m_processWatch;

    bool m_examined = false;
    bool m_installed = false;
    bool m_updateAvailable = false;
    bool m_pinned = false;
    bool m_damaged = false;
    bool m_failed = false;
    bool m_rollbackPossible = false;
    QString m_installedVersion;
    QString m_availableVersion;
    tvl::updater::IUpdateEngine::UpdateState m_state;
    GameProcess* m_game = nullptr;
};
