// These records have always carried the settings manager's source name, where this class once lived.
#define TVL_LOG_SOURCE "libupdater/UpdaterSettingsManager"

#include "IciSettingsProvider.h"

#include <basix/ICISettings.h>
#include <basix/Logger.h>

#include <QtCore/QFileInfo>
#include <QtCore/QFileSystemWatcher>
#include <QtCore/QMap>
#include <QtCore/QSet>

#include <tuple>

namespace tvl::updater {

IciSettingsProvider::IciSettingsProvider(tvl::ICISettings* settings, QObject* parent)
    : ISettingsProvider(IciProvider, parent)
    , m_settings(settings)
    , m_watcher(new QFileSystemWatcher(this))
{
    connect(m_watcher, &QFileSystemWatcher::fileChanged, this, &IciSettingsProvider::onFileChanged);
    connect(m_watcher, &QFileSystemWatcher::directoryChanged, this,
            &IciSettingsProvider::onDirectoryChanged);
    // Every file the engine has read so far; the script is not evaluated here.
    restoreWatches();
}

IciSettingsProvider::~IciSettingsProvider() = default;

QVariant IciSettingsProvider::getSetting(const QString& key) const
{
    return m_settings->value(key, QVariant());
}

void IciSettingsProvider::update(const QString& key, const QVariant& value)
{
    m_settings->setValue(key, value);
    evaluate();
}

QStringList IciSettingsProvider::keys() const
{
    return m_settings->keys();
}

bool IciSettingsProvider::evaluate()
{
    if (!m_settings->evaluate(false, false)) {
        TVL_LOG(tvl::Logger::Error) << m_settings->errorString();
        // The watched files stay; an include that could not be read is waited for, so that the
        // evaluation is tried again when it appears.
        restoreWatches();
        return false;
    }
    const QStringList files = m_settings->files();
    const QStringList watched = m_watcher->files();
    for (const QString& path : watched) {
        if (!files.contains(path))
            m_watcher->removePath(path);
    }
    // Adds the files not watched yet, among them any the watcher dropped after a rename.
    restoreWatches();
    return true;
}

void IciSettingsProvider::onFileChanged(const QString& files)
{
    Q_UNUSED(files)
    // A file replaced by rename has just been dropped by the watcher. Watching it again before
    // it is read means that a write landing after the reload is reported too, even when this
    // reload fails (an editor that saves an empty file first).
    restoreWatches();

    QMap<QString, QVariant> previous;
    const QStringList previousKeys = m_settings->keys();
    for (const QString& key : previousKeys)
        previous.insert(key, m_settings->value(key, QVariant()));

    if (!m_settings->reload() || !evaluate()) {
        TVL_LOG(tvl::Logger::Warning) << "can't reload settings";
        return;
    }

    // All differences are taken before the first signal: a receiver may write a setting, and
    // that evaluates the script again.
    using Change = std::tuple<QString, QVariant, QVariant>;
    QList<Change> changes;
    const QStringList currentKeys = m_settings->keys();
    for (const QString& key : currentKeys) {
        const QVariant value = m_settings->value(key, QVariant());
        const auto it = previous.constFind(key);
        if (it == previous.cend())
            changes.append(Change(key, QVariant(), value));
        else if (*it != value)
            changes.append(Change(key, *it, value));
    }
    const QSet<QString> current(currentKeys.cbegin(), currentKeys.cend());
    for (auto it = previous.cbegin(); it != previous.cend(); ++it) {
        if (!current.contains(it.key()))
            changes.append(Change(it.key(), it.value(), QVariant()));
    }
    for (const Change& change : std::as_const(changes))
        emit settingChanged(std::get<0>(change), std::get<1>(change), std::get<2>(change));
}

// Watches every file of the script that the watcher does not hold: one it lost because it was
// replaced by rename, or one that could not be watched because it did not exist at that moment.
// The directory of a file that is missing is watched until the file is back, since an editor
// that deletes before it writes would otherwise leave it unwatched for good; so is the directory
// of an include that the last evaluation could not read. Only regular files are watched as
// files: a directory in a file's place would be watched as a directory, and taken for the file
// once it is a file again. Returns true when a file is watched again or a missing include is
// there now.
bool IciSettingsProvider::restoreWatches()
{
    const QStringList watched = m_watcher->files();
    const QStringList files = m_settings->files();
    const QStringList missing = m_settings->missingFiles();
    bool restored = false;
    QStringList waitingIn;
    const auto waitFor = [&waitingIn](const QString& path) {
        // The nearest directory that exists: that of the file, or one above it.
        QFileInfo directory(QFileInfo(path).absolutePath());
        while (!directory.isDir() && !directory.isRoot())
            directory.setFile(directory.absolutePath());
        if (!waitingIn.contains(directory.absoluteFilePath()))
            waitingIn.append(directory.absoluteFilePath());
    };
    for (const QString& path : files) {
        if (watched.contains(path))
            continue;
        if (QFileInfo(path).isFile() && m_watcher->addPath(path))
            restored = true;
        else
            waitFor(path);
    }
    for (const QString& path : missing)
        waitFor(path);

    const QStringList watchedDirectories = m_watcher->directories();
    for (const QString& directory : watchedDirectories) {
        if (!waitingIn.contains(directory))
            m_watcher->removePath(directory);
    }
    for (const QString& directory : std::as_const(waitingIn)) {
        if (!watchedDirectories.contains(directory))
            m_watcher->addPath(directory);
    }
    // Looked at once the directories are watched, so that nothing written in between is lost.
    for (const QString& path : missing) {
        const QFileInfo info(path);
        restored = restored || (info.isFile() && info.isReadable());
    }
    return restored;
}

void IciSettingsProvider::onDirectoryChanged()
{
    // A missing file is back: it may have been written while nobody watched it.
    if (restoreWatches())
        onFileChanged(QString());
}

} // namespace tvl::updater
