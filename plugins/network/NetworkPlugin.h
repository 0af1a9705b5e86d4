#pragma once

#include <libupdater/UpdaterPlugin.h>

#include <QtCore/QList>
#include <QtCore/QPointer>

class NetworkManager;

/**
 * Offers the launcher's one INetworkManager and keeps it in line with the settings
 * "network.max_connections" (transfers at once, default 4), "network.rate_limit" (KiB a second
 * for all transfers together, 0 for none), "network.timeout" (seconds without a byte before an
 * attempt fails, default 30) and "network.proxy" (empty: the system's; "none"; or an address
 * such as "http://proxy:3128" or "socks5://proxy:1080"), also while the launcher runs.
 */
class NetworkPlugin : public tvl::updater::UpdaterPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID UPDATER_PLUGIN_IID)

public:
    bool init() override;
    void objectAdded(QObject* object) override;
    void uninit() override;

private:
    void applySettings();

    QPointer<NetworkManager> m_manager;
    /// The settings managers whose changes are followed (each object is announced more than once).
    QList<QPointer<QObject>> m_followed;
};
