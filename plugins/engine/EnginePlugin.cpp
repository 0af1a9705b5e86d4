#include "EnginePlugin.h"

#include "UpdateEngine.h"

#include <basix/Logger.h>

#include <libupdater/INetworkManager.h>
#include <libupdater/ISettingsManager.h>
#include <libupdater/UpdaterPluginApi.h>
#include <libupdater/UpdaterPluginErrorEvent.h>

using namespace tvl::updater;

bool EnginePlugin::init()
{
    m_engine = new UpdateEngine(api(), this);
    m_engine->setObjectName(QStringLiteral("engine"));
    connect(m_engine, &UpdateEngine::failed, this, [this](const UpdaterError& error) {
        TVL_LOG(tvl::Logger::Warning) << error.errorId() << error.text() << error.details();
        api()->postEvent(new UpdaterPluginErrorEvent(error));
    });
    connect(m_engine, &UpdateEngine::gameStarted, this, [this] { api()->activateBackgroundMode(true); });
    connect(m_engine, &UpdateEngine::gameEnded, this, [this] { api()->activateBackgroundMode(false); });
    m_engine->reload();
    api()->addObject(m_engine);
    return true;
}

void EnginePlugin::uninit()
{
    if (m_engine)
        m_engine->cancel();
    UpdaterPlugin::uninit();
}

void EnginePlugin::objectAdded(QObject* object)
{
    if (!m_engine || m_followed.contains(object))
        return;
    if (auto* network = qobject_cast<INetworkManager*>(object)) {
        m_followed.append(object);
        m_engine->setNetworkManager(network);
    } else if (auto* settings = qobject_cast<ISettingsManager*>(object)) {
        m_followed.append(object);
        connect(settings, &ISettingsManager::settingChanged, this, [this](const QString& key) {
            if (key.startsWith(QLatin1String("projects.")) || key.startsWith(QLatin1String("update."))
                || key.startsWith(QLatin1String("projects/")))
                m_engine->reload();
        });
        m_engine->reload();
    }
}

void EnginePlugin::updaterEvent(UpdaterPluginEventPtr event)
{
    // Every plugin's services are there once all are loaded: the network manager among them.
    if (event && event->type() == UpdaterPluginEvent::AllPluginsLoadedEvent && m_engine)
        m_engine->start();
}

#define ENGINE_FORWARD(slot, call)                                                                                   \
    void EnginePlugin::slot(const QString& project)                                                                  \
    {                                                                                                                \
        Project* found = m_engine ? m_engine->project(project) : nullptr;                                            \
        if (!found || !found->call())                                                                                \
            TVL_LOG(tvl::Logger::Info) << #slot << "of project" << project << "did not start";                      \
    }

ENGINE_FORWARD(install, install)
ENGINE_FORWARD(verify, verify)
ENGINE_FORWARD(repair, repair)
ENGINE_FORWARD(rollback, rollback)
ENGINE_FORWARD(pause, pause)
ENGINE_FORWARD(resume, resume)
ENGINE_FORWARD(uninstall, uninstall)
ENGINE_FORWARD(launch, launch)

#undef ENGINE_FORWARD

void EnginePlugin::setChannel(const QString& project, const QString& channel)
{
    Project* found = m_engine ? m_engine->project(project) : nullptr;
    if (!found || channel.isEmpty())
        return;
    api()->setSetting(QStringLiteral("projects.%1.channel").arg(project), channel, SettingsAttributes(AllScopes) | PersistSetting);
    found->setChannel(channel);
}

void EnginePlugin::checkAll()
{
    if (m_engine)
        m_engine->checkAll();
}

QString EnginePlugin::translated(const QString& project, const char* key) const
{
    const QString fullKey = QStringLiteral("projects.%1.%2").arg(project, QLatin1String(key));
    // A table per language, or one text for all.
    const QVariant perLanguage = api()->getSetting(fullKey, QVariant(), TranslatedSetting);
    if (perLanguage.isValid())
        return perLanguage.toString();
    const QVariant plain = api()->getSetting(fullKey);
    return plain.typeId() == QMetaType::QVariantMap ? QString() : plain.toString();
}

void EnginePlugin::projectInfo(const QString& project, QVariantMap* info) const
{
    Project* found = m_engine ? m_engine->project(project) : nullptr;
    if (!info || !found)
        return;
    const QString name = translated(project, "name");
    info->insert(QStringLiteral("name"), name.isEmpty() ? project : name);
    info->insert(QStringLiteral("installedVersion"), found->installedVersion());
    info->insert(QStringLiteral("availableVersion"), found->availableVersion());
    info->insert(QStringLiteral("channel"), found->config().channel);
    info->insert(QStringLiteral("directory"), found->config().directory);
    info->insert(QStringLiteral("icon"), api()->getSetting(QStringLiteral("projects.%1.icon").arg(project)).toString());
    info->insert(QStringLiteral("banner"), api()->getSetting(QStringLiteral("projects.%1.banner").arg(project)).toString());
    info->insert(QStringLiteral("trailer"), api()->getSetting(QStringLiteral("projects.%1.trailer").arg(project)).toString());
    info->insert(QStringLiteral("news"), translated(project, "news"));
    info->insert(QStringLiteral("state"), int(found->state()));
    info->insert(QStringLiteral("paused"), found->isPaused());
    info->insert(QStringLiteral("rollbackPossible"), found->rollbackPossible());
    info->insert(QStringLiteral("running"), found->gameRunning());
    info->insert(QStringLiteral("problems"), found->config().problems);
}
