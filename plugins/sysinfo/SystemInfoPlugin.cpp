#include "SystemInfoPlugin.h"

#include <libupdater/UpdaterPluginApi.h>

#include <QtCore/QSysInfo>
#include <QtCore/QThread>

#include <unistd.h>

SystemInfo::SystemInfo(QObject* parent)
    : ISystemInfo(parent)
{
    setObjectName(QStringLiteral("systemInfo"));
}

QString SystemInfo::osName() const
{
    return QSysInfo::prettyProductName();
}

QVariant SystemInfo::value(const QString& key) const
{
    if (key == QLatin1String("cpu.architecture"))
        return QSysInfo::currentCpuArchitecture();
    if (key == QLatin1String("cpu.cores"))
        return QThread::idealThreadCount();
    if (key == QLatin1String("kernel.version"))
        return QSysInfo::kernelVersion();
    if (key == QLatin1String("host.name"))
        return QSysInfo::machineHostName();
    if (key == QLatin1String("memory.total")) {
        const long pages = ::sysconf(_SC_PHYS_PAGES);
        const long pageSize = ::sysconf(_SC_PAGESIZE);
        if (pages > 0 && pageSize > 0)
            return qlonglong(pages) * qlonglong(pageSize);
    }
    return QVariant();
}

bool SystemInfoPlugin::init()
{
    // Owned by the plugin: the object's code lives in this library, so it must go with the
    // plugin, before the library can be unloaded.
    api()->addObject(new SystemInfo(this));
    return true;
}
