#include "I18nPlugin.h"
#include "Translations.h"

#include <basix/Logger.h>

#include <libupdater/ISettingsManager.h>
#include <libupdater/UpdaterPluginApi.h>

#include <QtCore/QDir>
#include <QtCore/QFileInfo>

#include <dlfcn.h>

using namespace tvl;
using namespace tvl::updater;

namespace {

/// The directory of this plugin's library, wherever the host found it.
QString libraryDirectory()
{
    Dl_info info;
    if (::dladdr(reinterpret_cast<void*>(&libraryDirectory), &info) == 0 || !info.dli_fname)
        return QString();
    return QFileInfo(QString::fromLocal8Bit(info.dli_fname)).absolutePath();
}

} // namespace

bool I18nPlugin::init()
{
    const QString given = extraData().toMap().value(QStringLiteral("translations"), QStringLiteral("translations")).toString();
    m_directory = QDir(libraryDirectory()).absoluteFilePath(given);
    m_translations = new Translations(m_directory, this);
    connect(api(), &UpdaterPluginApi::settingChanged, this, &I18nPlugin::settingChanged);
    api()->addObject(m_translations);
    followSettings();
    return true;
}

void I18nPlugin::objectAdded(QObject* object)
{
    if (auto* settings = qobject_cast<ISettingsManager*>(object)) {
        connect(settings, &ISettingsManager::settingChanged, this, &I18nPlugin::settingChanged, Qt::UniqueConnection);
        followSettings();
    }
}

void I18nPlugin::updaterEvent(UpdaterPluginEventPtr event)
{
    if (event && event->type() == UpdaterPluginEvent::AllPluginsLoadedEvent)
        m_running = true;
}

void I18nPlugin::settingChanged(const QString& key)
{
    if (key == QLatin1String("i18n") || key.startsWith(QLatin1String("i18n.")))
        followSettings();
}

void I18nPlugin::followSettings()
{
    m_translations->setCountry(api()->getSetting(QStringLiteral("i18n.country")).toString());
    const QString wanted = api()->getSetting(QStringLiteral("i18n.lang")).toString();
    if (m_followed == wanted)
        return;
    m_followed = wanted;

    const auto select = [this](const QString& language) {
        return m_running ? m_translations->setLanguage(language) : m_translations->setLanguageNow(language);
    };
    if (!select(wanted.isEmpty() ? QStringLiteral("en") : wanted)) {
        TVL_LOG(Logger::Warning) << "No translations into" << wanted << "in" << m_directory
                                 << "(offered:" << m_translations->availableLanguages().join(QStringLiteral(", "))
                                 << "): the texts stay in English";
        select(QStringLiteral("en"));
    }
}
