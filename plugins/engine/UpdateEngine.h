#pragma once

#include "Project.h"

#include <libupdater/INetworkManager.h>
#include <libupdater/IUpdateEngine.h>

#include <vantor/Transport.h>

#include <QtCore/QMap>
#include <QtCore/QPointer>
#include <QtCore/QTimer>

namespace tvl::updater {
class UpdaterPluginApi;
}

/// The update library's transfers carried by the launcher's network manager.
class ManagerTransport : public tvl::vantor::Transport
{
    Q_OBJECT

public:
    explicit ManagerTransport(QObject* parent = nullptr);
    void setManager(tvl::updater::INetworkManager* manager) { m_manager = manager; }
    bool hasManager() const { return m_manager != nullptr; }
    QNetworkReply* get(const QNetworkRequest& request) override;

private:
    QPointer<tvl::updater::INetworkManager> m_manager;
};

/**
 * IUpdateEngine over the update library for the games the settings describe ("projects.<id>").
 * Each project is examined when the launcher has loaded its plugins and checked again every
 * "update.check_interval_minutes"; with "update.automatic" (the default without a window) what
 * a check finds is installed at once. The overall state combines the projects' states as
 * docs/engine.md says.
 */
class UpdateEngine : public tvl::updater::IUpdateEngine
{
    Q_OBJECT

public:
    UpdateEngine(tvl::updater::UpdaterPluginApi* api, QObject* parent = nullptr);
    ~UpdateEngine() override;

    QStringList projects() const override;
    UpdateState state() const override;
    UpdateState projectState(const QString& project) const override;
    bool checkForUpdates(const QString& project) override;
    bool update(const QString& project) override;
    void cancel() override;

    Project* project(const QString& id) const { return m_projects.value(id); }
    void setNetworkManager(tvl::updater::INetworkManager* manager);
    /// Reads the projects and the engine's settings again; starts examining new projects.
    void reload();
    /// Examines every project and starts the periodic checks.
    void start();
    /// Checks every project that is idle now.
    void checkAll();

Q_SIGNALS:
    void failed(tvl::updater::UpdaterError error);
    void gameStarted(const QString& project);
    void gameEnded(const QString& project);

private:
    tvl::vantor::Options optionsFor(const ProjectConfig& config) const;
    void add(const ProjectConfig& config);
    void refreshState();
    void onChecked(Project* project);
    void maybeAllUpdated();
    bool automatic() const;

    tvl::updater::UpdaterPluginApi* m_api;
    ManagerTransport* m_transport;
    QMap<QString, Project*> m_projects;
    QTimer m_checkTimer;
    UpdateState m_state;
    bool m_started = false;
    /// A round of checks has started and not yet been announced by allProjectsUpdated().
    bool m_roundOpen = false;
};
