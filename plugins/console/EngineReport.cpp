#include "EngineReport.h"

#include "ConsolePlugin.h"

#include <basix/Console.h>

#include <libupdater/UpdaterPluginApi.h>

#include <QtCore/QLocale>

using namespace tvl::updater;
using tvl::Console;

namespace {

constexpr qint64 ProgressIntervalMs = 1000;

QString stageName(tvl::vantor::Progress::Stage stage)
{
    switch (stage) {
    case tvl::vantor::Progress::Checking:
        return EngineReport::tr("checking");
    case tvl::vantor::Progress::Downloading:
        return EngineReport::tr("downloading");
    case tvl::vantor::Progress::Patching:
        return EngineReport::tr("assembling files");
    case tvl::vantor::Progress::Verifying:
        return EngineReport::tr("verifying");
    case tvl::vantor::Progress::Finishing:
        return EngineReport::tr("finishing");
    default:
        return EngineReport::tr("working");
    }
}

} // namespace

EngineReport::EngineReport(UpdaterPluginApi* api, QObject* parent)
    : QObject(parent)
    , m_api(api)
{
    m_clock.start();
}

void EngineReport::follow(IUpdateEngine* engine)
{
    if (m_engine == engine)
        return;
    m_engine = engine;
    connect(engine, qOverload<const QString&, IUpdateEngine::UpdateState>(&IUpdateEngine::stateChanged), this,
            &EngineReport::onState);
    connect(engine, &IUpdateEngine::progress, this, &EngineReport::onProgress);
    connect(engine, &IUpdateEngine::projectUpdated, this, &EngineReport::onUpdated);
    connect(engine, &IUpdateEngine::allProjectsUpdated, this, [] { ConsolePlugin::say(tr("every game is checked")); });
}

QVariantMap EngineReport::info(const QString& project) const
{
    QVariantMap info;
    m_api->callInPlugin(QStringLiteral("engine"), "projectInfo", Q_ARG(QString, project), Q_ARG(QVariantMap*, &info));
    return info;
}

QString EngineReport::describe(const QString& project, IUpdateEngine::UpdateState state) const
{
    const QVariantMap details = info(project);
    const QString installed = details.value(QStringLiteral("installedVersion")).toString();
    const QString available = details.value(QStringLiteral("availableVersion")).toString();
    if (state == IUpdateEngine::Initializing)
        return tr("not examined yet");
    if (state.testFlag(IUpdateEngine::UpdateBlockedByProcess))
        return tr("running: changes wait for the game to end");
    if (state.testFlag(IUpdateEngine::Updating))
        return tr("working on its files");
    if (state.testFlag(IUpdateEngine::CheckingUpdates))
        return tr("checking for updates");
    if (state.testFlag(IUpdateEngine::UpdateFailed))
        return state.testFlag(IUpdateEngine::Executable) || state.testFlag(IUpdateEngine::UpdatePending) ? tr("the last operation failed")
                                                                                                    : tr("damaged: repair it");
    if (state.testFlag(IUpdateEngine::UpdatePending))
        return installed.isEmpty()
            ? (available.isEmpty() ? tr("not installed") : tr("not installed (%1 available)").arg(available))
            : tr("version %1, update %2 available").arg(installed, available);
    if (state.testFlag(IUpdateEngine::UpToDate))
        return tr("version %1, up to date").arg(installed);
    return tr("state %1").arg(int(state));
}

void EngineReport::onState(const QString& project, IUpdateEngine::UpdateState state)
{
    ConsolePlugin::say(QStringLiteral("%1: %2").arg(project, describe(project, state)));
}

void EngineReport::onProgress(const tvl::vantor::Progress& progress)
{
    const qint64 now = m_clock.elapsed();
    if (progress.stage == tvl::vantor::Progress::Idle || now - m_lastProgress.value(progress.project, -ProgressIntervalMs) < ProgressIntervalMs)
        return;
    m_lastProgress.insert(progress.project, now);
    const QLocale locale;
    QString line = QStringLiteral("%1: %2").arg(progress.project, stageName(progress.stage));
    if (progress.bytesTotal > 0) {
        line += tr(" %1% of %2").arg(int(progress.fraction() * 100)).arg(locale.formattedDataSize(progress.bytesTotal));
    }
    if (progress.bytesPerSecond > 0)
        line += tr(", %1/s").arg(locale.formattedDataSize(qint64(progress.bytesPerSecond)));
    if (progress.secondsLeft > 0)
        line += tr(", %n second(s) left", nullptr, int(progress.secondsLeft));
    ConsolePlugin::say(line);
}

void EngineReport::onUpdated(const tvl::vantor::UpdateResultPtr& result)
{
    if (!result)
        return;
    if (result->success) {
        const QString change = result->previousVersion.isEmpty() || result->previousVersion == result->version
            ? result->version
            : QStringLiteral("%1 -> %2").arg(result->previousVersion, result->version);
        ConsolePlugin::say(tr("%1: done, version %2").arg(result->project, change), Console::Green);
    } else {
        ConsolePlugin::say(tr("%1: %2").arg(result->project, result->errorString), Console::Red);
    }
}

QString EngineReport::commands()
{
    return QStringLiteral("projects, check, install|play|verify|repair|rollback|pause|resume|uninstall <game>, channel <game> <name>");
}

bool EngineReport::run(const QStringList& words)
{
    const QString command = words.value(0);
    if (command == QLatin1String("projects")) {
        if (!m_engine) {
            ConsolePlugin::say(tr("no update engine is loaded"));
            return true;
        }
        for (const QString& project : m_engine->projects())
            ConsolePlugin::say(QStringLiteral("%1 (%2): %3")
                                   .arg(project, info(project).value(QStringLiteral("name")).toString(),
                                        describe(project, m_engine->projectState(project))));
        return true;
    }
    if (command == QLatin1String("check")) {
        m_api->callInPlugin(QStringLiteral("engine"), "checkAll");
        return true;
    }
    static const QStringList operations = {QStringLiteral("install"), QStringLiteral("play"), QStringLiteral("verify"),
                                           QStringLiteral("repair"),  QStringLiteral("rollback"), QStringLiteral("pause"),
                                           QStringLiteral("resume"),  QStringLiteral("uninstall")};
    if (operations.contains(command) && words.size() == 2) {
        const QByteArray slot = command == QLatin1String("play") ? QByteArray("launch") : command.toLatin1();
        if (!m_api->callInPlugin(QStringLiteral("engine"), slot.constData(), Q_ARG(QString, words.at(1))))
            ConsolePlugin::say(tr("no update engine is loaded"));
        return true;
    }
    if (command == QLatin1String("channel") && words.size() == 3) {
        m_api->callInPlugin(QStringLiteral("engine"), "setChannel", Q_ARG(QString, words.at(1)), Q_ARG(QString, words.at(2)));
        return true;
    }
    return false;
}
