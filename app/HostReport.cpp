#include "HostReport.h"

#include <basix/Console.h>

#include <libupdater/UpdaterPluginInfo.h>
#include <libupdater/UpdaterPluginsManager.h>

#include <QtCore/QStringList>

using tvl::Console;
using tvl::updater::UpdaterPluginInfo;

namespace {

QString flagsOf(const UpdaterPluginInfo* info)
{
    QStringList flags;
    if (!info->autoLoad())
        flags.append(QStringLiteral("not-autoload"));
    if (info->isMandatory())
        flags.append(QStringLiteral("mandatory"));
    if (info->needGUI())
        flags.append(QStringLiteral("needGUI"));
    if (info->unsafe())
        flags.append(QStringLiteral("unsafe"));
    return flags.isEmpty() ? QStringLiteral("-") : flags.join(QLatin1Char(','));
}

QString dependenciesOf(const UpdaterPluginInfo* info)
{
    QStringList names;
    for (const auto& [name, hard] : info->resolvedDependencies())
        names.append(hard ? name : name + QLatin1Char('?'));
    names.sort();
    return names.isEmpty() ? QStringLiteral("-") : names.join(QLatin1Char(','));
}

QString milliseconds(qint64 microseconds)
{
    return microseconds < 0 ? QStringLiteral("-")
                            : QString::number(double(microseconds) / 1000.0, 'f', 3) + QStringLiteral(" ms");
}

void print(const QString& line)
{
    Console::pprint(line + QLatin1Char('\n'));
}

} // namespace

HostReport::HostReport(const tvl::updater::UpdaterPluginsManager& manager)
    : m_manager(manager)
{
}

void HostReport::printDescriptors() const
{
    const QList<UpdaterPluginInfo*> plugins = m_manager.plugins();
    print(QStringLiteral("Plugins in %1: %2").arg(m_manager.pluginPaths().join(QStringLiteral(", "))).arg(plugins.size()));
    print(QStringLiteral("  (dependencies: name = hard, name? = soft, injected or through a replacement)"));
    for (const UpdaterPluginInfo* info : plugins) {
        QString line = QStringLiteral("  %1  flags=%2  depends=%3")
                           .arg(info->name(), flagsOf(info), dependenciesOf(info));
        if (!info->replacedPlugins().isEmpty())
            line += QStringLiteral("  replaces=") + info->replacedPlugins().join(QLatin1Char(','));
        print(line);
    }
    const auto rejected = m_manager.rejectedDescriptors();
    if (!rejected.isEmpty()) {
        print(QStringLiteral("Descriptors that give no plugin:"));
        for (const auto& [file, reason] : rejected)
            print(QStringLiteral("  %1: %2").arg(file, reason));
    }
}

void HostReport::printLoadOrderAndStates() const
{
    print(QStringLiteral("Load order:"));
    int position = 0;
    for (const UpdaterPluginInfo* info : m_manager.plugins()) {
        const QString state = info->isLoaded() ? QStringLiteral("loaded")
            : info->isQuarantined()            ? QStringLiteral("quarantined")
                                               : QStringLiteral("not loaded");
        QString line = QStringLiteral("  %1. %2  %3  library %4  init %5")
                           .arg(++position)
                           .arg(info->name(), state, milliseconds(info->libraryLoadTime()), milliseconds(info->initTime()));
        if (!info->errorString().isEmpty())
            line += QStringLiteral("\n       error: ") + info->errorString();
        print(line);
    }
}

void HostReport::printLoadTimes() const
{
    qint64 total = 0;
    print(QStringLiteral("Load times:"));
    for (const UpdaterPluginInfo* info : m_manager.plugins()) {
        if (!info->isLoaded())
            continue;
        const qint64 spent = qMax<qint64>(0, info->libraryLoadTime()) + qMax<qint64>(0, info->initTime());
        total += spent;
        print(QStringLiteral("  %1  library %2  init %3")
                  .arg(info->name(), milliseconds(info->libraryLoadTime()), milliseconds(info->initTime())));
    }
    print(QStringLiteral("  total %1").arg(milliseconds(total)));
}
