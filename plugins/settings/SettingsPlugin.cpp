#include "SettingsPlugin.h"

#include <basix/ICISettings.h>
#include <basix/Logger.h>
#include <basix/SimpleCommandLineParser.h>

#include <libupdater/CommandlineSettingsProvider.h>
#include <libupdater/IciFunctions.h>
#include <libupdater/IciSettingsProvider.h>
#include <libupdater/IniSettingsProvider.h>
#include <libupdater/MemorySettingsProvider.h>
#include <libupdater/Updater.h>
#include <libupdater/UpdaterPluginApi.h>
#include <libupdater/UpdaterSettingsManager.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QSysInfo>

using namespace tvl;
using namespace tvl::updater;

bool SettingsPlugin::init()
{
    // Everything hangs below the plugin object: its code lives in this library.
    auto* manager = new UpdaterSettingsManager(this);
    manager->setObjectName(QStringLiteral("settings"));

    auto* runtime = new MemorySettingsProvider(manager, ISettingsProvider::RuntimeProvider);
    runtime->setSetting(QStringLiteral("sys.osname"), QSysInfo::kernelType());
    runtime->setSetting(QString::fromLatin1(UPSETTING_UPDATER_VERSION), QString::fromLatin1(UPDATER_VERSION));
    runtime->setSetting(QString::fromLatin1(UPSETTING_UPDATER_REVISION), QString::fromLatin1(UPDATER_REVISION));
    manager->addProvider(runtime);
    manager->addProvider(new CommandlineSettingsProvider(manager));
    manager->addProvider(new IniSettingsProvider(QDir(tv_user_preferences_path()).filePath(QStringLiteral("updater.ini")),
                                                 ISettingsProvider::PersistentProvider, manager));
    // Registered before the script is read, so that the script sees "sys.osname".
    api()->addObject(manager);

    const QVariant given = tv_updater_args()->option(QStringLiteral("config"));
    const QString file = given.isValid()
        ? QFileInfo(given.toString()).absoluteFilePath()
        : QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("updater.lua"));
    const QFileInfo info(file);
    if (!info.exists()) {
        if (given.isValid()) {
            TVL_LOG(Logger::Error) << "The configuration file" << file << "does not exist";
            setLoadingErrorString(tr("The configuration file %1 does not exist.").arg(file));
            return false;
        }
        TVL_LOG(Logger::Notice) << "No configuration script at" << file;
        return true;
    }
    // A directory, a FIFO or a device is never read as a script.
    if (!info.isFile()) {
        TVL_LOG(Logger::Error) << "The configuration file" << file << "is not a regular file";
        if (given.isValid()) {
            setLoadingErrorString(tr("The configuration file %1 is not a regular file.").arg(file));
            return false;
        }
        return true;
    }

    ICISettings* script = api()->loadSettings(file, QCoreApplication::applicationDirPath());
    registerIciFunctions(script);
    auto* provider = new IciSettingsProvider(script, manager);
    // The provider only borrows the script; as its child the script outlives it.
    script->setParent(provider);
    TVL_LOG(Logger::Notice) << "Configuration script" << file;
    // A broken script is reported by the provider, which keeps watching: fixing the file
    // brings its settings in.
    provider->evaluate();
    manager->addProvider(provider);
    return true;
}
