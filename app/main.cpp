// The launcher's host executable: sets up paths, crash marker and logging, then lets the
// plugin host load the plugins and runs the event loop until they ask it to stop.
#include "HostReport.h"
#include "SignalWatcher.h"

#include <basix/Console.h>
#include <basix/Logger.h>
#include <basix/RotatingFileLoggerOutput.h>
#include <basix/SimpleCommandLineParser.h>
#include <basix/StandardErrorLoggerOutput.h>

#include <libupdater/QtSingleApplication.h>
#include <libupdater/Updater.h>
#include <libupdater/UpdaterLogCollector.h>
#include <libupdater/UpdaterPluginApi.h>
#include <libupdater/UpdaterPluginsManager.h>

#include <QtCore/QDir>
#include <QtCore/QStandardPaths>

#include <memory>

using namespace tvl;
using namespace tvl::updater;

namespace {

constexpr int LogCollectorLines = 2000;

const char usage[] =
    "Usage: updater [options]\n"
    "\n"
    "  --plugin-dir=DIR     read the plugins from DIR (default: the bundled plugins)\n"
    "  --no-gui             run without windows (also when there is no display)\n"
    "  --list-plugins       print every plugin, the load order and the result, then quit\n"
    "  --profile            print how long each plugin took to load\n"
    "  --log-level=N        log records of level N (0 most detailed .. 5 errors) and above;\n"
    "                       default 3\n"
    "  --quit-after=SECONDS quit by itself (the console plugin)\n"
    "  -h, --help           this text\n";

QStringList argumentsOf(int argc, char** argv)
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    return arguments;
}

bool displayAvailable()
{
    return !qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")
        || !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM");
}

QString defaultPluginDirectory()
{
    return QDir::cleanPath(QDir(QCoreApplication::applicationDirPath())
                               .filePath(QStringLiteral(UPDATER_RELATIVE_PLUGIN_DIR)));
}

} // namespace

int main(int argc, char** argv)
{
    const SimpleCommandLineParser arguments(argumentsOf(argc, argv));
    if (arguments.hasSwitch(QStringLiteral("help"), QLatin1Char('h'))) {
        Console::pprint(QString::fromLatin1(usage));
        return 0;
    }
    const bool hasGui = !arguments.hasSwitch(QStringLiteral("no-gui")) && displayAvailable();
    const bool listPlugins = arguments.hasSwitch(QStringLiteral("list-plugins"));
    const bool profile = arguments.hasSwitch(QStringLiteral("profile"));

    QCoreApplication::setOrganizationName(QStringLiteral("Tarvel"));
    QCoreApplication::setApplicationName(QStringLiteral("updater"));
    QCoreApplication::setApplicationVersion(QString::fromLatin1(UPDATER_VERSION));

    std::unique_ptr<QCoreApplication> application;
    if (hasGui) {
        // One launcher per user: a second start hands its command line to the first.
        auto* single = new QtSingleApplication(QStringLiteral("tarvel-updater"), argc, argv);
        application.reset(single);
        if (single->isRunning() && !listPlugins) {
            return single->sendMessage(QCoreApplication::arguments().join(QLatin1Char('\n'))) ? 0 : 1;
        }
    } else {
        application = std::make_unique<QCoreApplication>(argc, argv);
    }

    tv_set_application_path(QCoreApplication::applicationFilePath());
    const QString preferences = QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation);
    QDir().mkpath(preferences);
    tv_set_user_preferences_path(preferences);

    Logger* logger = Logger::instance();
    bool levelOk = false;
    const int level = arguments.option(QStringLiteral("log-level"), QChar(), 3).toInt(&levelOk);
    logger->setMinimumLevel(Logger::Level(levelOk ? qBound(0, level, 6) : 3));
    logger->addOutput(new StandardErrorLoggerOutput, Logger::TakeOwnership);
    logger->addOutput(new RotatingFileLoggerOutput(QDir(preferences).filePath(QStringLiteral("updater.log"))),
                      Logger::TakeOwnership);
    Logger::routeQtMessages(true);

    tv_setup_crash_handler();

    auto collector = std::make_unique<UpdaterLogCollector>(LogCollectorLines);
    collector->setObjectName(QStringLiteral("logCollector"));
    logger->addOutput(collector.get());

    int status = 0;
    {
        UpdaterPluginsManager manager;
        SignalWatcher signalWatcher;
        QObject::connect(&signalWatcher, &SignalWatcher::stopRequested, &manager,
                         [&manager] { manager.quit(0); });
        if (auto* single = qobject_cast<QtSingleApplication*>(application.get())) {
            QObject::connect(single, &QtSingleApplication::messageReceived, single,
                             [](const QString& message) {
                                 TVL_LOG(Logger::Notice) << "Started again with" << message.split(QLatin1Char('\n'));
                             });
        }
        manager.api()->addObject(collector.get());

        manager.setPluginPath(arguments.option(QStringLiteral("plugin-dir"), QChar(), defaultPluginDirectory()).toString());
        HostReport report(manager);
        if (listPlugins)
            report.printDescriptors();

        if (!manager.loadPlugins(hasGui)) {
            // A mandatory plugin failed; the user has been told.
            status = 126;
        } else {
            if (listPlugins)
                report.printLoadOrderAndStates();
            else if (profile)
                report.printLoadTimes();
            if (listPlugins)
                manager.quit(0);
            status = application->exec();
        }
        manager.api()->removeObject(collector.get());
    }

    logger->removeOutput(collector.get());
    return status;
}
