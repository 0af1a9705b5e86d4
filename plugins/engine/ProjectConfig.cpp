#include "ProjectConfig.h"

#include <libupdater/ISettingsManager.h>
#include <libupdater/UpdaterPluginApi.h>

#include <vantor/Keys.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QRegularExpression>

using namespace tvl::updater;

namespace {

QString text(const UpdaterPluginApi* api, const QString& id, const char* key)
{
    return api->getSetting(QStringLiteral("projects.%1.%2").arg(id, QLatin1String(key))).toString().trimmed();
}

} // namespace

QStringList ProjectConfig::ids(const UpdaterPluginApi* api)
{
    QStringList ids;
    if (auto* settings = api->getObject<ISettingsManager>()) {
        static const QRegularExpression projectKey(QStringLiteral("^projects[./]([A-Za-z0-9_-]+)[./]"));
        for (const QString& key : settings->keys(AllScopes)) {
            const QRegularExpressionMatch match = projectKey.match(key);
            if (match.hasMatch() && !ids.contains(match.captured(1)))
                ids.append(match.captured(1));
        }
    }
    ids.sort();
    return ids;
}

ProjectConfig ProjectConfig::read(const UpdaterPluginApi* api, const QString& id)
{
    ProjectConfig config;
    config.id = id;
    const QString url = text(api, id, "url");
    config.repository = QUrl::fromUserInput(url, QDir::currentPath(), QUrl::AssumeLocalFile);
    if (url.isEmpty() || !config.repository.isValid())
        config.problems.append(QCoreApplication::translate("ProjectConfig", "projects.%1.url does not name a repository.").arg(id));
    config.channel = text(api, id, "channel");
    if (config.channel.isEmpty())
        config.channel = QStringLiteral("stable");
    config.directory = text(api, id, "dir");
    if (config.directory.isEmpty())
        config.problems.append(QCoreApplication::translate("ProjectConfig", "projects.%1.dir names no install directory.").arg(id));
    else
        config.directory = QDir::cleanPath(QDir(config.directory).absolutePath());

    const QStringList keys = setting_to_string_list(api->getSetting(QStringLiteral("projects.%1.keys").arg(id), QVariant(), IciScope));
    config.noKeys = keys.isEmpty();
    for (const QString& key : keys) {
        QString error;
        const QByteArray decoded = tvl::vantor::Keys::decodePublicKey(key, &error);
        if (decoded.isEmpty())
            config.problems.append(QCoreApplication::translate("ProjectConfig", "projects.%1.keys: %2").arg(id, error));
        else
            config.keys.append(decoded);
    }
    if (config.noKeys) {
        config.problems.append(QCoreApplication::translate(
            "ProjectConfig", "projects.%1.keys lists no public key in the configuration script: releases cannot be verified.").arg(id));
    }
    config.executable = text(api, id, "executable");
    config.arguments = setting_to_string_list(api->getSetting(QStringLiteral("projects.%1.arguments").arg(id)));
    return config;
}

QString ProjectConfig::program() const
{
    return executable.isEmpty() ? QString() : QDir::cleanPath(QDir(directory).absoluteFilePath(executable));
}
