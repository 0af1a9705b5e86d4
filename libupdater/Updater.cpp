#include "Updater.h"

namespace tvl::updater {

const char* const UPDATER_VERSION = "3.11.1";
const char* const UPDATER_REVISION = "4e83d23";
const char* const UPSETTING_UPDATER_VERSION = "UPDATER_VERSION";
const char* const UPSETTING_UPDATER_REVISION = "UPDATER_REVISION";

} // namespace tvl::updater
