#pragma once

#include <libupdater/LibupdaterExport.h>

namespace tvl::updater {

/// Version of the launcher library.
LIBUPDATER_EXPORT extern const char* const UPDATER_VERSION;
/// Source revision the library was built from.
LIBUPDATER_EXPORT extern const char* const UPDATER_REVISION;
/// Settings key under which the host publishes UPDATER_VERSION.
LIBUPDATER_EXPORT extern const char* const UPSETTING_UPDATER_VERSION;
/// Settings key under which the host publishes UPDATER_REVISION.
LIBUPDATER_EXPORT extern const char* const UPSETTING_UPDATER_REVISION;

} // namespace tvl::updater
