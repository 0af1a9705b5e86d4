// The launcher's host executable: sets up paths, crash marker and logging, then lets the
// plugin host load the plugins and runs the event loop until they ask it to stop.
#include "HostReport.h"
#include "SignalWatcher.h"

#include <basix/Console.h>
#include <basix/Logger.h>
#include <basix/RotatingFileLoggerOutput.h>
#include <basix/SimpleCommandLineParser.h>
#include <basix/StandardErrorLoggerOutput.h>

#include <libupdater/ISettingsManager.h>
#include <libupdater/QtSingleApplication.h>
#include <libupdater/Updater.h>
#include <libupdater/UpdaterLogCollector.h>
#include <libupdater/UpdaterPluginApi.h>
#include <libupdater/UpdaterPluginsManager.h>

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QStandardPaths>

#include <exception>
#include <memory>

using namespace tvl;
using namespace tvl::updater;

namespace {

constexpr int LogCollectorLines = 2000;

const char usage[] =
    "Usage: updater [options] [--key=value ...]\n"
    "\n"
    "  --plugin-dir=DIR     read the plugins from DIR instead of the bundled ones\n"
    "  --add-plugin-dir=DIR read the plugins of DIR too, after the bundled ones (several\n"
    "                       directories: DIR1:DIR2); a name already taken is left out\n"
    "  --config=FILE        the configuration script (default: updater.lua next to the\n"
    "                       executable)\n"
    "  --no-gui             run without windows (also when there is no display)\n"
    "  --list-plugins       print every plugin, the load order and the result, then quit\n"
    "  --profile            print how long each plugin took to load\n"
    "  --print-settings=KEYS print key=value for each of the settings KEYS (commas), as\n"
    "                       the plugins see them once loaded, then quit\n"
    "  --log-level=N        log records of level N (0 most detailed .. 5 errors) and above;\n"
    "                       default 3\n"
    "  --quit-after=SECONDS quit by itself (the console plugin)\n"
    "  -h, --help           this text\n"
    "\n"
    "Every setting can be given as --key=value, with its dotted key; it hides the user's\n"
    "saved preferences and the configuration script. A list is given with commas:\n"
    "  --plugins.disable=console,sysinfo   do not load these two plugins\n"
    "  --plugins.enable=extra              load a plugin that is not loaded by default\n"
    "  --i18n.lang=fr                      the language of the texts\n"
    "\n"
    "Games are installed and updated from the repositories that the configuration script\n"
    "names: projects.<id> = { url = ..., channel = ..., dir = ..., keys = { ... }, ... }, the\n"
    "keys being the publishers' public keys (see docs/settings.md and the example in the\n"
    "default updater.lua). --projects.<id>.url=URL points a game at another repository.\n"
    "\n"
    "A second SIGINT or SIGTERM (Ctrl+C twice) stops the launcher at once, without shutting\n"
    "its plugins down.\n";

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

/// An application object whose event dispatch lets nothing a plugin throws escape: a slot or
/// event handler run by the event loop that throws is logged and the event counts as unhandled.
template<typename Base>
class GuardedApplication : public Base
{
public:
    using Base::Base;

    bool notify(QObject* receiver, QEvent* event) override
    {
        try {
            return Base::notify(receiver, event);
        } catch (const std::exception& exception) {
            tv_log_plugin_exception(receiver, "an event handler", exception.what());
        } catch (...) {
            tv_log_plugin_exception(receiver, "an event handler", nullptr);
        }
        return false;
    }
};

constexpr int RestartHandOverMs = 10000;

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
    const QString printedSettings = arguments.option(QStringLiteral("print-settings")).toString();
    // Runs that only answer a question: beside a running launcher they neither hand it their
    // command line nor take its crash marker for theirs.
    const bool query = listPlugins || !printedSettings.isEmpty();

    QCoreApplication::setOrganizationName(QStringLiteral("Tarvel"));
    QCoreApplication::setApplicationName(QStringLiteral("updater"));
    QCoreApplication::setApplicationVersion(QString::fromLatin1(UPDATER_VERSION));

    std::unique_ptr<QCoreApplication> application;
    if (hasGui) {
        // One launcher per user: a second start hands its command line to the first.
        auto* single = new GuardedApplication<QtSingleApplication>(QStringLiteral("tarvel-updater"), argc, argv);
        application.reset(single);
        if (single->isRunning() && !query) {
            if (!arguments.hasSwitch(QStringLiteral("restart")))
                return single->sendMessage(QCoreApplication::arguments().join(QLatin1Char('\n'))) ? 0 : 1;
            // Restarted by the launcher that is ending now: it must not get our arguments.
            if (!single->takeOver(RestartHandOverMs)) {
                TVL_LOG(Logger::Warning) << QStringLiteral("The previous launcher did not let go of the single-instance "
                                                           "lock within %1 s; starting as the only instance anyway")
                                                .arg(RestartHandOverMs / 1000);
            }
        }
    } else {
        application = std::make_unique<GuardedApplication<QCoreApplication>>(argc, argv);
    }
    SignalWatcher signalWatcher;

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

    // Listing the plugins or printing settings beside a running launcher must not take that
    // launcher's marker for a crash, nor remove it.
    if (!query)
        tv_setup_crash_handler();

    auto collector = std::make_unique<UpdaterLogCollector>(LogCollectorLines);
    collector->setObjectName(QStringLiteral("logCollector"));
    logger->addOutput(collector.get());

    int status = 0;
    {
        UpdaterPluginsManager manager;
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
        const QString added = arguments.option(QStringLiteral("add-plugin-dir")).toString();
        for (const QString& directory : added.split(QLatin1Char(':'), Qt::SkipEmptyParts))
            manager.setPluginPath(QFileInfo(directory).absoluteFilePath());
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
            if (!printedSettings.isEmpty()) {
                for (const QString& key : printedSettings.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
                    const QVariant value = manager.api()->getSetting(key);
                    Console::pprint(QStringLiteral("%1=%2\n").arg(key, setting_to_string_list(value).join(QLatin1Char(','))));
                }
                manager.quit(0);
            }
            status = application->exec();
        }
        manager.api()->removeObject(collector.get());
    }

    logger->removeOutput(collector.get());
    return status;
}
