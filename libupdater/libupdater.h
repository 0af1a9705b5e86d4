#pragma once

// Every public header of the launcher library.
#include <basix/basix.h>

#include <libupdater/LibupdaterExport.h>

#include <libupdater/CommandlineSettingsProvider.h>
#include <libupdater/II18n.h>
#include <libupdater/INetworkManager.h>
#include <libupdater/ISettingsManager.h>
#include <libupdater/ISettingsProvider.h>
#include <libupdater/ISystemInfo.h>
#include <libupdater/ISystemSettingsProvider.h>
#include <libupdater/IUpdateEngine.h>
#include <libupdater/IUpdaterErrorManager.h>
#include <libupdater/IUpdaterNotification.h>
#include <libupdater/IciFunctions.h>
#include <libupdater/IciSettingsProvider.h>
#include <libupdater/IniSettingsProvider.h>
#include <libupdater/MemorySettingsProvider.h>
#include <libupdater/QtSingleApplication.h>
#include <libupdater/QtSingleCoreApplication.h>
#include <libupdater/SettingsAttributes.h>
#include <libupdater/UiUtils.h>
#include <libupdater/Updater.h>
#include <libupdater/UpdaterError.h>
#include <libupdater/UpdaterLogCollector.h>
#include <libupdater/UpdaterPlugin.h>
#include <libupdater/UpdaterPluginApi.h>
#include <libupdater/UpdaterPluginAskToUserEvent.h>
#include <libupdater/UpdaterPluginCustomUrlClickedEvent.h>
#include <libupdater/UpdaterPluginErrorEvent.h>
#include <libupdater/UpdaterPluginEvent.h>
#include <libupdater/UpdaterPluginInfo.h>
#include <libupdater/UpdaterPluginLifecycleEvents.h>
#include <libupdater/UpdaterPluginsManager.h>
#include <libupdater/UpdaterSettingsManager.h>

// Video playback has its own umbrella header, <libupdater/vlc/vlc.h>: it needs the libvlc headers.
