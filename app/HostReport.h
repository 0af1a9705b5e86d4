#pragma once

namespace tvl::updater {
class UpdaterPluginsManager;
}

/// What --list-plugins and --profile print on standard output.
class HostReport
{
public:
    explicit HostReport(const tvl::updater::UpdaterPluginsManager& manager);

    /// Every descriptor read: name, flags and dependencies as resolved.
    void printDescriptors() const;
    /// The load order and, for each plugin, whether it is loaded and how long it took.
    void printLoadOrderAndStates() const;
    /// How long each loaded plugin took to load its library and to initialise.
    void printLoadTimes() const;

private:
    const tvl::updater::UpdaterPluginsManager& m_manager;
};
