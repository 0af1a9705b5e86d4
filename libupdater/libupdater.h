#pragma once

// Every public header of the launcher library.
#include <basix/basix.h>

#include <libupdater/LibupdaterExport.h>
#include <libupdater/Updater.h>
