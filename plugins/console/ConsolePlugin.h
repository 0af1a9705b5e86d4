#pragma once

#include <libupdater/UpdaterPlugin.h>

#include <basix/Console.h>

class EngineReport;
class QSocketNotifier;

/**
 * Shows on the terminal what the launcher does (plugins loaded, services offered, events,
 * errors, what the update engine does to the games) and takes commands from standard input:
 * "quit", "plugins", "services", "help", and the games' commands ("projects", "install demo",
 * "play demo", ...).
 * --quit-after=SECONDS on the launcher's command line stops it by itself.
 */
class ConsolePlugin : public tvl::updater::UpdaterPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID UPDATER_PLUGIN_IID)

public:
    bool init() override;
    void uninit() override;
    void objectAdded(QObject* object) override;
    void updaterEvent(tvl::updater::UpdaterPluginEventPtr event) override;

    /// One line on standard output, after the plugin's tag.
    static void say(const QString& text, tvl::Console::Color color = tvl::Console::DefaultColor);

private:
    void readCommand();
    void runCommand(const QString& command);
    void printPlugins();
    void printServices();

    QSocketNotifier* m_input = nullptr;
    QByteArray m_pendingInput;
    QStringList m_services;
    EngineReport* m_engine = nullptr;
};
