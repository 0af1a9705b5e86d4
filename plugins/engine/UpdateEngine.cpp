#include "UpdateEngine.h"

#include <basix/Logger.h>

#include <libupdater/UpdaterPluginApi.h>

using namespace tvl::updater;

namespace {

constexpr double DefaultCheckIntervalMinutes = 60;
constexpr int DefaultConnections = 4;

} // namespace

ManagerTransport::ManagerTransport(QObject* parent)
    : Transport(parent)
{
}

QNetworkReply* ManagerTransport::get(const QNetworkRequest& request)
{
    return m_manager->get(request);
}

UpdateEngine::UpdateEngine(UpdaterPluginApi* api, QObject* parent)
    : IUpdateEngine(parent)
    , m_api(api)
    , m_transport(new ManagerTransport(this))
{
    tvl::vantor::registerMetaTypes();
    connect(&m_checkTimer, &QTimer::timeout, this, &UpdateEngine::checkAll);
}

UpdateEngine::~UpdateEngine()
{
    // Operations end before the transport they use goes.
    qDeleteAll(m_projects);
    m_projects.clear();
}

void UpdateEngine::setNetworkManager(INetworkManager* manager)
{
    m_transport->setManager(manager);
}

tvl::vantor::Options UpdateEngine::optionsFor(const ProjectConfig& config) const
{
    tvl::vantor::Options options;
    options.repository = config.repository;
    options.project = config.id;
    options.channel = config.channel;
    options.trustedKeys = config.keys;
    options.installDirectory = config.directory;
    bool ok = false;
    const int connections = m_api->getSetting(QStringLiteral("network.max_connections"), DefaultConnections).toInt(&ok);
    options.connections = ok && connections > 0 ? connections : DefaultConnections;
    const int timeout = m_api->getSetting(QStringLiteral("network.timeout"), 30).toInt(&ok);
    options.timeoutMs = (ok && timeout > 0 ? timeout : 30) * 1000;
    if (m_transport->hasManager()) {
        // The network plugin keeps the rate limit for all plugins and retries on its own.
        options.transport = m_transport;
        options.rateLimit = 0;
        options.retries = 2;
    } else {
        options.rateLimit = m_api->getSetting(QStringLiteral("network.rate_limit"), 0).toLongLong() * 1024;
    }
    // Another process on the directory (the vantor tool, a second launcher) is waited for a while.
    options.lockTimeoutMs = 10000;
    return options;
}

bool UpdateEngine::automatic() const
{
    const QVariant automatic = m_api->getSetting(QStringLiteral("update.automatic"));
    if (automatic.isValid())
        return automatic.toBool();
    return m_api->applicationOptions().testFlag(UpdaterPluginApi::NoGui);
}

void UpdateEngine::add(const ProjectConfig& config)
{
    auto* project = new Project(config, [this](const ProjectConfig& c) { return optionsFor(c); }, this);
    m_projects.insert(config.id, project);
    const QString id = config.id;
    connect(project, &Project::stateChanged, this, [this, id](UpdateState state) {
        Q_EMIT stateChanged(id, state);
        refreshState();
        maybeAllUpdated();
    });
    connect(project, &Project::changed, this, [this, id] { Q_EMIT projectChanged(id); });
    connect(project, &Project::progress, this, [this](const tvl::vantor::Progress& progress) { Q_EMIT this->progress(progress); });
    connect(project, &Project::computationProgress, this, &IUpdateEngine::computationProgress);
    connect(project, &Project::operationFinished, this, [this](const tvl::vantor::UpdateResultPtr& result) {
        Q_EMIT projectUpdated(result);
        maybeAllUpdated();
    });
    connect(project, &Project::failed, this, &UpdateEngine::failed);
    connect(project, &Project::checked, this, [this, project] { onChecked(project); });
    connect(project, &Project::gameStarted, this, [this, id] { Q_EMIT gameStarted(id); });
    connect(project, &Project::gameEnded, this, [this, id] { Q_EMIT gameEnded(id); });
    if (m_started) {
        m_roundOpen = true;
        project->examine();
    }
}

void UpdateEngine::reload()
{
    const QStringList ids = ProjectConfig::ids(m_api);
    for (const QString& id : ids) {
        const ProjectConfig config = ProjectConfig::read(m_api, id);
        if (!config.problems.isEmpty())
            TVL_LOG(tvl::Logger::Warning) << "Project" << id << ":" << config.problems.join(QLatin1Char(' '));
        if (Project* project = m_projects.value(id))
            project->setConfig(config);
        else
            add(config);
    }
    for (const QString& id : m_projects.keys()) {
        Project* project = m_projects.value(id);
        if (!ids.contains(id) && !project->isBusy() && !project->gameRunning()) {
            m_projects.remove(id);
            project->deleteLater();
        }
    }
    bool ok = false;
    const double minutes = m_api->getSetting(QStringLiteral("update.check_interval_minutes"), DefaultCheckIntervalMinutes).toDouble(&ok);
    const int interval = int(qBound(1.0, (ok && minutes > 0 ? minutes : DefaultCheckIntervalMinutes) * 60000.0, 24.0 * 3600000.0));
    if (m_checkTimer.interval() != interval || !m_checkTimer.isActive()) {
        m_checkTimer.setInterval(interval);
        if (m_started)
            m_checkTimer.start();
    }
    refreshState();
}

void UpdateEngine::start()
{
    if (m_started)
        return;
    m_started = true;
    m_roundOpen = true;
    for (Project* project : std::as_const(m_projects))
        project->examine();
    m_checkTimer.start();
    maybeAllUpdated();
}

void UpdateEngine::checkAll()
{
    m_roundOpen = true;
    for (Project* project : std::as_const(m_projects)) {
        // A check only reads: it runs while the game does too.
        if (project->isBusy())
            continue;
        if (project->state() == Initializing)
            project->examine();
        else
            project->check();
    }
    maybeAllUpdated();
}

void UpdateEngine::onChecked(Project* project)
{
    if (!automatic() || project->isPinned() || !project->config().problems.isEmpty())
        return;
    if (project->isPaused())
        return;
    if ((!project->isInstalled() || project->updateAvailable()) && !project->isBusy())
        project->install();
}

void UpdateEngine::maybeAllUpdated()
{
    if (!m_roundOpen)
        return;
    for (Project* project : std::as_const(m_projects)) {
        if (project->isBusy() || project->state() == Initializing)
            return;
    }
    m_roundOpen = false;
    Q_EMIT allProjectsUpdated();
}

QStringList UpdateEngine::projects() const
{
    return m_projects.keys();
}

IUpdateEngine::UpdateState UpdateEngine::state() const
{
    return m_state;
}

IUpdateEngine::UpdateState UpdateEngine::projectState(const QString& project) const
{
    const Project* found = m_projects.value(project);
    return found ? found->state() : UpdateState(Initializing);
}

void UpdateEngine::refreshState()
{
    // Initializing until every project is known; then what any project does or needs, and
    // UpToDate only when every project is.
    UpdateState state;
    bool allKnown = true;
    bool allCurrent = !m_projects.isEmpty();
    for (const Project* project : std::as_const(m_projects)) {
        const UpdateState own = project->state();
        if (own == Initializing)
            allKnown = false;
        state |= own & (CheckingUpdates | Updating | UpdatePending | UpdateFailed | UpdateBlockedByProcess | Executable);
        allCurrent = allCurrent && own.testFlag(UpToDate);
    }
    if (!allKnown && !(state & (CheckingUpdates | Updating)))
        state = Initializing;
    else if (allCurrent)
        state |= UpToDate;
    if (state == m_state)
        return;
    m_state = state;
    Q_EMIT stateChanged(state);
}

bool UpdateEngine::checkForUpdates(const QString& project)
{
    Project* found = m_projects.value(project);
    return found && found->check();
}

bool UpdateEngine::update(const QString& project)
{
    Project* found = m_projects.value(project);
    return found && found->install();
}

void UpdateEngine::cancel()
{
    for (Project* project : std::as_const(m_projects))
        project->cancel();
}
