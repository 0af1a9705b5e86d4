#include "Project.h"

#include "EngineErrors.h"
#include "GameProcess.h"

#include <basix/Logger.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

using tvl::updater::IUpdateEngine;
using tvl::updater::UpdaterError;
using tvl::vantor::ErrorCode;
using tvl::vantor::Operation;
using tvl::vantor::UpdateResultPtr;

namespace {

// While a game blocks a change, the launcher looks every so often whether it has ended.
constexpr int ProcessWatchIntervalMs = 2000;

Operation::Kind kindOf(Project::Activity activity)
{
    switch (activity) {
    case Project::Activity::Examining:
        return Operation::Status;
    case Project::Activity::Checking:
        return Operation::Check;
    case Project::Activity::Installing:
        return Operation::Install;
    case Project::Activity::Updating:
        return Operation::Update;
    case Project::Activity::Verifying:
        return Operation::Verify;
    case Project::Activity::Repairing:
        return Operation::Repair;
    case Project::Activity::RollingBack:
        return Operation::Rollback;
    case Project::Activity::Uninstalling:
        return Operation::Uninstall;
    case Project::Activity::SettingChannel:
        return Operation::SetChannel;
    case Project::Activity::None:
        break;
    }
    return Operation::Status;
}

bool changesFiles(Project::Activity activity)
{
    return activity == Project::Activity::Installing || activity == Project::Activity::Updating
        || activity == Project::Activity::Repairing || activity == Project::Activity::RollingBack
        || activity == Project::Activity::Uninstalling;
}

} // namespace

Project::Project(const ProjectConfig& config, OptionsFactory options, QObject* parent)
    : QObject(parent)
    , m_config(config)
    , m_options(std::move(options))
    , m_game(new GameProcess(this))
{
    m_processWatch.setInterval(ProcessWatchIntervalMs);
    connect(&m_processWatch, &QTimer::timeout, this, [this] {
        if (gameRunning())
            return;
        m_processWatch.stop();
        const Activity deferred = std::exchange(m_deferred, Activity::None);
        refreshState();
        if (deferred != Activity::None)
            startChanging(deferred);
    });
    connect(m_game, &GameProcess::ended, this, [this] {
        TVL_LOG(tvl::Logger::Notice) << "The game of project" << id() << "ended";
        Q_EMIT gameEnded();
        const Activity deferred = std::exchange(m_deferred, Activity::None);
        m_processWatch.stop();
        refreshState();
        if (deferred != Activity::None && !gameRunning())
            startChanging(deferred);
    });
}

Project::~Project()
{
    if (m_operation)
        m_operation->cancel();
}

void Project::setConfig(const ProjectConfig& config)
{
    const bool moved = config.directory != m_config.directory || config.channel != m_config.channel
        || config.repository != m_config.repository;
    m_config = config;
    if (moved && !isBusy()) {
        m_examined = false;
        examine();
    }
    Q_EMIT changed();
}

bool Project::gameRunning() const
{
    return m_game->isRunning() || (m_processWatch.isActive() && processRunsFromDirectory());
}

bool Project::processRunsFromDirectory() const
{
    // Any process whose program lies in the install directory, the game started by us or not; for
    // a script, the interpreter runs it, so its first two arguments count too.
    const QString prefix = m_config.directory + QLatin1Char('/');
    const QStringList pids = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& pid : pids) {
        bool numeric = false;
        pid.toLongLong(&numeric);
        if (!numeric)
            continue;
        if (QFile::symLinkTarget(QStringLiteral("/proc/%1/exe").arg(pid)).startsWith(prefix))
            return true;
        QFile commandLine(QStringLiteral("/proc/%1/cmdline").arg(pid));
        if (!commandLine.open(QIODevice::ReadOnly))
            continue;
        const QList<QByteArray> arguments = commandLine.read(4096).split('\0');
        for (qsizetype i = 0; i < qMin<qsizetype>(2, arguments.size()); ++i) {
            const QString argument = QFile::decodeName(arguments.at(i));
            if (!argument.contains(QLatin1Char('/')))
                continue; // a program looked up in PATH, or no path at all
            const QString cwd = QFile::symLinkTarget(QStringLiteral("/proc/%1/cwd").arg(pid));
            if (QDir::cleanPath(QDir(cwd).absoluteFilePath(argument)).startsWith(prefix))
                return true;
        }
    }
    return false;
}

IUpdateEngine::UpdateState Project::state() const
{
    return m_state;
}

void Project::refreshState()
{
    using S = IUpdateEngine::UpdateStateE;
    IUpdateEngine::UpdateState state;
    const bool intact = m_installed && !m_damaged;
    const bool pending = !m_installed || m_updateAvailable;
    if (m_game->isRunning() || m_deferred != Activity::None) {
        state = S::UpdateBlockedByProcess;
        if (pending)
            state |= S::UpdatePending;
    } else if (m_activity == Activity::Examining || m_activity == Activity::Checking) {
        state = S::CheckingUpdates;
        if (intact)
            state |= S::Executable;
    } else if (m_activity != Activity::None && m_activity != Activity::SettingChannel) {
        state = S::Updating;
    } else if (!m_examined) {
        state = S::Initializing;
    } else if (m_damaged) {
        state = S::UpdateFailed;
    } else if (m_failed) {
        state = S::UpdateFailed;
        if (pending)
            state |= S::UpdatePending;
        if (intact)
            state |= S::Executable;
    } else if (!m_installed) {
        state = S::UpdatePending;
    } else if (m_updateAvailable) {
        state = IUpdateEngine::UpdateState(S::UpdatePending) | S::Executable;
    } else {
        state = IUpdateEngine::UpdateState(S::UpToDate) | S::Executable;
    }
    if (state == m_state)
        return;
    m_state = state;
    Q_EMIT stateChanged(state);
}

void Project::report(const UpdaterError& error)
{
    if (!error.isNull())
        Q_EMIT failed(error);
}

bool Project::start(Activity activity)
{
    if (isBusy())
        return false;
    if (!m_config.problems.isEmpty() && activity != Activity::Examining && activity != Activity::Uninstalling) {
        m_failed = true;
        refreshState();
        report(EngineErrors::make(m_config.noKeys ? EngineErrors::NoPublicKey : EngineErrors::BadSettings, id(),
                                  m_config.problems.join(QLatin1Char('\n'))));
        return false;
    }
    tvl::vantor::Options options = m_options(m_config);
    if (activity == Activity::SettingChannel)
        options.channel = m_requestedChannel;
    auto* operation = new Operation(kindOf(activity), options, this);
    m_operation = operation;
    m_activity = activity;
    m_paused = Activity::None;
    connect(operation, &Operation::progress, this, [this, activity](const tvl::vantor::Progress& progress) {
        Q_EMIT this->progress(progress);
        if ((activity == Activity::Verifying || activity == Activity::Repairing) && progress.stage == tvl::vantor::Progress::Verifying)
            Q_EMIT computationProgress(progress.fraction());
    });
    connect(operation, &Operation::finished, this, [this, activity, operation](const UpdateResultPtr& result) {
        operation->deleteLater();
        onFinished(activity, result);
    });
    TVL_LOG(tvl::Logger::Notice) << "Project" << id() << ":" << Operation::kindName(kindOf(activity));
    refreshState();
    operation->start();
    return true;
}

bool Project::startChanging(Activity activity)
{
    if (isBusy())
        return false;
    if (gameRunning() || processRunsFromDirectory()) {
        // The game's files are not touched while it runs: the change waits for its end.
        m_deferred = activity;
        if (!m_game->isRunning())
            m_processWatch.start();
        refreshState();
        report(EngineErrors::make(EngineErrors::GameRunning, id(), m_config.directory));
        return true;
    }
    return start(activity);
}

void Project::onFinished(Activity activity, const UpdateResultPtr& result)
{
    m_activity = Activity::None;
    m_operation = nullptr;
    const bool cancelled = result && result->error == ErrorCode::Cancelled;
    if (result && result->success) {
        m_failed = false;
        switch (activity) {
        case Activity::Examining:
            m_examined = true;
            m_installed = true;
            m_installedVersion = result->version;
            m_rollbackPossible = result->rollbackPossible;
            m_pinned = result->pinned;
            break;
        case Activity::Checking:
            m_availableVersion = result->version;
            m_updateAvailable = result->updateAvailable || !m_installed;
            break;
        case Activity::Installing:
        case Activity::Updating:
        case Activity::RollingBack:
            m_rollbackPossible = result->rollbackPossible;
            m_pinned = result->pinned;
            m_updateAvailable = activity == Activity::RollingBack;
            Q_FALLTHROUGH();
        case Activity::Repairing:
            // A repair restores the installed version: what can be rolled back to stays as it was.
            m_installed = true;
            m_damaged = false;
            m_installedVersion = result->version;
            break;
        case Activity::Verifying:
            m_damaged = false;
            break;
        case Activity::Uninstalling:
            m_installed = false;
            m_installedVersion.clear();
            m_updateAvailable = true;
            m_rollbackPossible = false;
            break;
        case Activity::SettingChannel:
        case Activity::None:
            break;
        }
    } else if (result && activity == Activity::Examining && result->error == ErrorCode::NotInstalled) {
        m_examined = true;
        m_installed = false;
        m_installedVersion.clear();
    } else if (result && result->error == ErrorCode::Damaged) {
        m_damaged = true;
        m_examined = true;
    } else if (!cancelled) {
        m_examined = true;
        m_failed = true;
    }
    if (cancelled && (changesFiles(activity) || activity == Activity::Verifying))
        m_paused = m_paused == Activity::None ? activity : m_paused;
    // Finding nothing installed is what examining a new project is for, no failure.
    const bool nothingInstalled = activity == Activity::Examining && result && result->error == ErrorCode::NotInstalled;
    if (!cancelled && !nothingInstalled && result)
        report(EngineErrors::fromResult(m_config.id, *result));
    Q_EMIT changed();
    if (activity != Activity::Examining && activity != Activity::Checking && activity != Activity::SettingChannel)
        Q_EMIT operationFinished(result);

    // An examination goes straight on to the check, without a state of its own in between; so
    // does a check on to the install it was made for.
    if (activity == Activity::Examining && m_config.problems.isEmpty() && check())
        return;
    if (activity == Activity::Checking && std::exchange(m_installAfterCheck, false) && result && result->success
        && startChanging(Activity::Installing)) {
        return;
    }
    refreshState();
    if (activity == Activity::Examining || activity == Activity::Checking)
        Q_EMIT checked();
}

bool Project::examine()
{
    return start(Activity::Examining);
}

bool Project::check()
{
    return start(Activity::Checking);
}

bool Project::install()
{
    if (m_installed)
        return startChanging(Activity::Updating);
    // Nothing is written for a release that cannot be had (an unknown channel, a bad record):
    // a fresh install follows a successful check.
    if (m_availableVersion.isEmpty() || m_failed) {
        m_installAfterCheck = true;
        if (check())
            return true;
        m_installAfterCheck = false;
        return false;
    }
    return startChanging(Activity::Installing);
}

bool Project::verify()
{
    return m_installed && start(Activity::Verifying);
}

bool Project::repair()
{
    return startChanging(m_installed ? Activity::Repairing : Activity::Installing);
}

bool Project::rollback()
{
    return m_installed && startChanging(Activity::RollingBack);
}

bool Project::uninstall()
{
    return m_installed && startChanging(Activity::Uninstalling);
}

bool Project::setChannel(const QString& channel)
{
    if (channel.isEmpty() || isBusy())
        return false;
    m_config.channel = channel;
    m_requestedChannel = channel;
    m_updateAvailable = false;
    Q_EMIT changed();
    if (!m_installed)
        return check();
    return start(Activity::SettingChannel);
}

bool Project::pause()
{
    if (!m_operation || !(changesFiles(m_activity) || m_activity == Activity::Verifying))
        return false;
    m_paused = m_activity;
    m_operation->cancel();
    return true;
}

bool Project::resume()
{
    if (m_paused == Activity::None || isBusy())
        return false;
    const Activity paused = std::exchange(m_paused, Activity::None);
    return paused == Activity::Verifying ? start(paused) : startChanging(paused);
}

void Project::cancel()
{
    m_deferred = Activity::None;
    m_processWatch.stop();
    if (m_operation)
        m_operation->cancel();
    refreshState();
}

bool Project::launch()
{
    if (!m_installed || m_damaged || isBusy() || m_game->isRunning())
        return false;
    if (!m_game->start(m_config.program(), m_config.arguments, m_config.directory)) {
        report(EngineErrors::make(EngineErrors::GameDoesNotStart, id(), m_game->errorString()));
        return false;
    }
    TVL_LOG(tvl::Logger::Notice) << "Started the game of project" << id() << "as process" << m_game->pid();
    refreshState();
    Q_EMIT gameStarted();
    return true;
}
