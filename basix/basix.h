#pragma once

// Every public header of the foundation layer.
#include <basix/BasixExport.h>
#include <basix/AbstractLoggerOutput.h>
#include <basix/Console.h>
#include <basix/Filesystem.h>
#include <basix/ICISettings.h>
#include <basix/ICISettingsContext.h>
#include <basix/Logger.h>
#include <basix/RotatingFileLoggerOutput.h>
#include <basix/SimpleCommandLineParser.h>
#include <basix/StandardErrorLoggerOutput.h>
#include <basix/StringUtils.h>
#include <basix/SystemEnvironment.h>
#include <basix/VariantUtils.h>
#include <basix/VersionNumber.h>
