#pragma once

#include <libupdater/ISettingsProvider.h>
#include <libupdater/LibupdaterExport.h>

QT_BEGIN_NAMESPACE
class QFileSystemWatcher;
QT_END_NAMESPACE

namespace tvl {
class ICISettings;
}

namespace tvl::updater {

/**
 * The settings layer computed by the launcher's configuration script.
 *
 * The provider answers from the variables of a borrowed ICISettings engine and watches every
 * file the script reads. When one of them changes on disk it reloads and evaluates the script
 * again and reports each key whose value changed through settingChanged(); a write anywhere in
 * the settings stack reaches update(), which hands the value to the script and evaluates it
 * again without reporting anything.
 *
 * The constructor only starts watching: the creator registers the script's native functions on
 * the engine and then calls evaluate() once.
 */
class LIBUPDATER_EXPORT IciSettingsProvider : public ISettingsProvider
{
    Q_OBJECT

public:
    /// `settings` must not be null and must outlive the provider, which never deletes it.
    IciSettingsProvider(tvl::ICISettings* settings, QObject* parent);
    ~IciSettingsProvider() override;

    QVariant getSetting(const QString& key) const override;
    /// Sets `key` as a script variable and evaluates the script again; reports nothing.
    void update(const QString& key, const QVariant& value) override;
    QStringList keys() const override;

    /**
     * Evaluates the script; true on success. A failure is logged with the engine's error text
     * and leaves the watched files as they were; a success watches exactly the files the
     * script read this time.
     */
    bool evaluate();

public Q_SLOTS:
    /// A watched file changed: reload, evaluate and report the keys whose values differ.
    void onFileChanged(const QString& files);

private:
    bool restoreWatches();
    void onDirectoryChanged();

    tvl::ICISettings* m_settings;
    QFileSystemWatcher* m_watcher;
};

} // namespace tvl::updater
