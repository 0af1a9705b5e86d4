#include "ConsolePlugin.h"

#include "EngineReport.h"

#include <basix/Console.h>
#include <basix/SimpleCommandLineParser.h>

#include <libupdater/ISettingsManager.h>
#include <libupdater/ISystemInfo.h>
#include <libupdater/IUpdateEngine.h>
#include <libupdater/Updater.h>
#include <libupdater/UpdaterPluginApi.h>
#include <libupdater/UpdaterPluginAskToUserEvent.h>
#include <libupdater/UpdaterPluginCustomUrlClickedEvent.h>
#include <libupdater/UpdaterPluginErrorEvent.h>

#include <QtCore/QSocketNotifier>
#include <QtCore/QTimer>

#include <limits>

#include <unistd.h>

using tvl::Console;
using namespace tvl::updater;

namespace {

QString describe(const QVariant& value)
{
    if (!value.isValid())
        return QStringLiteral("(nothing)");
    if (value.typeId() == QMetaType::QVariantList || value.typeId() == QMetaType::QStringList)
        return QLatin1Char('[') + value.toStringList().join(QStringLiteral(", ")) + QLatin1Char(']');
    return value.toString();
}

} // namespace

void ConsolePlugin::say(const QString& text, Console::Color color)
{
    Console::pprint(QStringLiteral("[console] "), Console::StandardOutput, Console::Cyan);
    Console::pprint(text + QLatin1Char('\n'), Console::StandardOutput, color);
}

bool ConsolePlugin::init()
{
    m_engine = new EngineReport(api(), this);
    say(tr("updater %1 (%2) started").arg(QString::fromLatin1(UPDATER_VERSION), QString::fromLatin1(UPDATER_REVISION)));
    if (tv_previous_run_crashed()) {
        say(tr("the previous run did not end in order"), Console::Yellow);
        if (const QString plugin = tv_previous_run_crashed_plugin(); !plugin.isEmpty()) {
            say(tr("it ended while plugin %1 was starting (%n run(s) in a row)", nullptr, tv_previous_run_crash_count())
                    .arg(plugin),
                Console::Yellow);
        }
    }

    m_input = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this);
    connect(m_input, &QSocketNotifier::activated, this, &ConsolePlugin::readCommand);

    bool valid = false;
    const int seconds = tv_updater_args()->option(QStringLiteral("quit-after")).toInt(&valid);
    if (valid && seconds >= 0) {
        // A timer counts milliseconds in an int: a longer wait is cut to the longest it can do.
        const int milliseconds = int(qMin<qint64>(qint64(seconds) * 1000, std::numeric_limits<int>::max()));
        QTimer::singleShot(milliseconds, this, [this, seconds] {
            say(tr("quitting after %n second(s), as asked", nullptr, seconds));
            api()->exit(0);
        });
    }
    return true;
}

void ConsolePlugin::uninit()
{
    say(tr("stopping"));
    Q_EMIT uninitialized();
}

void ConsolePlugin::objectAdded(QObject* object)
{
    const QString service = QStringLiteral("%1 \"%2\"").arg(QString::fromLatin1(object->metaObject()->className()),
                                                             object->objectName());
    m_services.append(service);
    say(tr("service offered: %1").arg(service));

    if (auto* engine = qobject_cast<IUpdateEngine*>(object))
        m_engine->follow(engine);
    if (auto* settings = qobject_cast<ISettingsManager*>(object)) {
        connect(settings, &ISettingsManager::settingChanged, this, [](const QString& key, const QVariant& value) {
            say(tr("setting changed: %1 = %2").arg(key, describe(value)), Console::Magenta);
        });
    }
}

void ConsolePlugin::updaterEvent(UpdaterPluginEventPtr event)
{
    if (!event)
        return; // posted as a null pointer
    switch (event->type()) {
    case UpdaterPluginEvent::AllPluginsLoadedEvent:
        printPlugins();
        if (auto* system = api()->getObject<ISystemInfo>()) {
            say(tr("system: %1, %2 cores, %3 MiB of memory")
                    .arg(system->osName())
                    .arg(system->value(QStringLiteral("cpu.cores")).toInt())
                    .arg(system->value(QStringLiteral("memory.total")).toLongLong() / (1024 * 1024)));
        }
        if (const QVariant welcome = api()->getSetting(QStringLiteral("welcome"), QVariant(), TranslatedSetting);
            welcome.isValid()) {
            say(welcome.toString(), Console::Green);
        }
        say(tr("type \"help\" for the commands"));
        break;
    case UpdaterPluginEvent::ErrorEvent: {
        const UpdaterError error = static_cast<UpdaterPluginErrorEvent*>(event.data())->error();
        say(tr("error %1: %2").arg(error.errorId(), error.text()), Console::Red);
        break;
    }
    case UpdaterPluginEvent::CustomUrlClickedEvent:
        say(tr("link followed: %1").arg(static_cast<UpdaterPluginCustomUrlClickedEvent*>(event.data())->url().toString()));
        break;
    case UpdaterPluginEvent::AskToUserEvent: {
        auto* question = static_cast<UpdaterPluginAskToUserEvent*>(event.data());
        say(tr("question: %1 (answered %2: nobody to ask on the console)")
                .arg(question->message(), question->userAccepted() ? tr("yes") : tr("no")),
            Console::Yellow);
        break;
    }
    case UpdaterPluginEvent::AboutToQuit:
        say(tr("the last window was closed"));
        break;
    default:
        break;
    }
}

void ConsolePlugin::readCommand()
{
    char buffer[512];
    const ssize_t size = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (size <= 0) {
        // End of input (or input that cannot be read): nobody will type anything any more.
        m_input->setEnabled(false);
        return;
    }
    m_pendingInput.append(buffer, size);
    qsizetype end;
    while ((end = m_pendingInput.indexOf('\n')) >= 0) {
        const QString command = QString::fromLocal8Bit(m_pendingInput.left(end)).trimmed();
        m_pendingInput.remove(0, end + 1);
        if (!command.isEmpty())
            runCommand(command);
    }
}

void ConsolePlugin::runCommand(const QString& command)
{
    if (command == QLatin1String("quit")) {
        say(tr("quitting, as asked"));
        api()->exit(0);
    } else if (command == QLatin1String("plugins")) {
        printPlugins();
    } else if (command == QLatin1String("services")) {
        printServices();
    } else if (command == QLatin1String("help")) {
        say(tr("commands: quit, plugins, services, help"));
        say(tr("games: %1").arg(EngineReport::commands()));
    } else if (!m_engine->run(command.split(QLatin1Char(' '), Qt::SkipEmptyParts))) {
        say(tr("unknown command \"%1\"; type \"help\"").arg(command), Console::Yellow);
    }
}

void ConsolePlugin::printPlugins()
{
    say(tr("plugins loaded: %1").arg(api()->loadedPluginNames().join(QStringLiteral(", "))), Console::Green);
}

void ConsolePlugin::printServices()
{
    say(tr("services: %1").arg(m_services.isEmpty() ? tr("none") : m_services.join(QStringLiteral(", "))));
}
