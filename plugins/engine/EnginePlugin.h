#pragma once

#include <libupdater/UpdaterPlugin.h>

#include <QtCore/QList>
#include <QtCore/QPointer>
#include <QtCore/QVariantMap>

class UpdateEngine;

/**
 * Offers the update engine (IUpdateEngine) and, as slots that another plugin reaches without
 * linking this one, the operations beyond that interface:
 *
 *     api()->callInPlugin("engine", "install", Q_ARG(QString, "demo"));
 *     QVariantMap info;
 *     api()->callInPlugin("engine", "projectInfo", Q_ARG(QString, "demo"), Q_ARG(QVariantMap*, &info));
 *
 * Results come back through the engine's signals (stateChanged, progress, projectUpdated) and
 * failures as UpdaterError values through the error event. While a game it launched runs, the
 * launcher is in background mode; this plugin stays loaded to watch the game.
 */
class EnginePlugin : public tvl::updater::UpdaterPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID UPDATER_PLUGIN_IID)

public:
    bool init() override;
    void uninit() override;
    void objectAdded(QObject* object) override;
    void updaterEvent(tvl::updater::UpdaterPluginEventPtr event) override;

public Q_SLOTS:
    /// Installs the project, or updates it when it is installed.
    void install(const QString& project);
    void verify(const QString& project);
    void repair(const QString& project);
    void rollback(const QString& project);
    void pause(const QString& project);
    void resume(const QString& project);
    /// Follows `channel` from now on (and remembers it in the user's preferences).
    void setChannel(const QString& project, const QString& channel);
    void uninstall(const QString& project);
    /// Starts the game with its arguments and watches it.
    void launch(const QString& project);
    /// Checks every project now.
    void checkAll();
    /**
     * What the window shows of a project: "name", "installedVersion", "availableVersion",
     * "channel", "directory", "icon", "banner", "trailer", "news", "state" (int), "paused",
     * "rollbackPossible", "running", "problems".
     */
    void projectInfo(const QString& project, QVariantMap* info) const;

private:
    QString translated(const QString& project, const char* key) const;

    QPointer<UpdateEngine> m_engine;
    QList<QPointer<QObject>> m_followed;
};
