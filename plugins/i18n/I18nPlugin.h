#pragma once

#include <libupdater/UpdaterPlugin.h>

#include <optional>

class Translations;

/**
 * Offers the II18n service and keeps the language of the texts on the setting "i18n.lang"
 * (and the locale's country on "i18n.country"): at start and whenever the settings manager
 * reports a change. A language without translations is logged and English is used instead.
 * While the plugins load, a switch happens at once, so that the texts of the plugins loaded
 * after this one are translated from the start; once they are loaded, the files of a new
 * language are read on a worker thread.
 */
class I18nPlugin : public tvl::updater::UpdaterPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID UPDATER_PLUGIN_IID)

public:
    bool init() override;
    void objectAdded(QObject* object) override;
    void updaterEvent(tvl::updater::UpdaterPluginEventPtr event) override;

private:
    void settingChanged(const QString& key);
    void followSettings();

    Translations* m_translations = nullptr;
    QString m_directory;
    /// The value of "i18n.lang" followed last; unset before the first time.
    std::optional<QString> m_followed;
    bool m_running = false;
};
