#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QUrl>

namespace tvl::updater {
class UpdaterPluginApi;
}

/**
 * One game as the settings describe it: "projects.<id>.{name, url, channel, dir, keys,
 * executable, arguments, icon, banner, trailer, news}". The public keys are read from the configuration
 * script's layer alone, so that no command-line option, preference or value set at run time can
 * make the launcher trust another publisher.
 */
struct ProjectConfig
{
    QString id;
    QUrl repository;
    QString channel;
    QString directory;
    QList<QByteArray> keys;
    QString executable;
    QStringList arguments;

    /// Reads project `id`; problems() says what is missing or wrong.
    static ProjectConfig read(const tvl::updater::UpdaterPluginApi* api, const QString& id);
    /// The ids under "projects." in every layer, sorted.
    static QStringList ids(const tvl::updater::UpdaterPluginApi* api);

    /// What keeps the project from being installed or updated, for the player; empty when nothing.
    QStringList problems;
    /// The configuration script gives no public key at all (rather than wrong ones).
    bool noKeys = false;

    /// The executable's absolute path.
    QString program() const;
};
