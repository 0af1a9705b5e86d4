#pragma once

#include <libupdater/UpdaterPlugin.h>

class QSocketNotifier;

/**
 * Shows on the terminal what the launcher does (plugins loaded, services offered, events,
 * errors) and takes commands from standard input: "quit", "plugins", "services", "help".
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

private:
    void readCommand();
    void runCommand(const QString& command);
    void printPlugins();
    void printServices();

    QSocketNotifier* m_input = nullptr;
    QByteArray m_pendingInput;
    QStringList m_services;
};
