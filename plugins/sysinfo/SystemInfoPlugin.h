#pragma once

#include <libupdater/ISystemInfo.h>
#include <libupdater/UpdaterPlugin.h>

/// The machine as the operating system describes it.
class SystemInfo : public tvl::updater::ISystemInfo
{
    Q_OBJECT

public:
    explicit SystemInfo(QObject* parent = nullptr);

    QString osName() const override;
    /// "cpu.architecture", "cpu.cores", "kernel.version", "memory.total" (bytes), "host.name".
    QVariant value(const QString& key) const override;
};

class SystemInfoPlugin : public tvl::updater::UpdaterPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID UPDATER_PLUGIN_IID)

public:
    bool init() override;
};
