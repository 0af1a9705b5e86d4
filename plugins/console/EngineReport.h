#pragma once

#include <libupdater/IUpdateEngine.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QHash>
#include <QtCore/QObject>
#include <QtCore/QPointer>

namespace tvl::updater {
class UpdaterPluginApi;
}

/**
 * What the update engine does, on the terminal: each project's state as it changes, progress
 * at most once a second, and the end of every operation. Commands on the games go to the engine
 * plugin by name, so the console needs no link to it.
 */
class EngineReport : public QObject
{
    Q_OBJECT

public:
    EngineReport(tvl::updater::UpdaterPluginApi* api, QObject* parent = nullptr);

    void follow(tvl::updater::IUpdateEngine* engine);
    /// Runs "projects", "check" or "<operation> <project> [<argument>]"; false when the command
    /// is none of those.
    bool run(const QStringList& words);
    static QString commands();

private:
    void onState(const QString& project, tvl::updater::IUpdateEngine::UpdateState state);
    void onProgress(const tvl::vantor::Progress& progress);
    void onUpdated(const tvl::vantor::UpdateResultPtr& result);
    QVariantMap info(const QString& project) const;
    QString describe(const QString& project, tvl::updater::IUpdateEngine::UpdateState state) const;

    tvl::updater::UpdaterPluginApi* m_api;
    QPointer<tvl::updater::IUpdateEngine> m_engine;
    QHash<QString, qint64> m_lastProgress;
    QElapsedTimer m_clock;
};
