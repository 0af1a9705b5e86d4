#pragma once

// Copies of the bundled plugins, as built, in a test's plugin directory.
#include "../libupdater/fixtures/PluginScenario.h"

#include <TestSupport.h>

/// Plugin `name` of the build, library and descriptor, into `dir`.
inline void addBundled(PluginDir& dir, const QString& name)
{
    dir.copy(QStringLiteral(BUNDLED_PLUGIN_DIR "/lib%1.so").arg(name), name);
    dir.write(name + QStringLiteral(".updaterplugin"),
              QString::fromUtf8(testsupport::readFile(QStringLiteral(BUNDLED_PLUGIN_DIR "/%1.updaterplugin").arg(name))));
}

/// The compiled translations of the build, into the directory "translations" of `dir`.
inline void addTranslations(const QString& dir)
{
    const QDir translations(QStringLiteral(BUNDLED_PLUGIN_DIR "/translations"));
    for (const QString& file : translations.entryList(QDir::Files))
        testsupport::writeFile(dir + QStringLiteral("/translations/") + file, testsupport::readFile(translations.filePath(file)));
}
