#include "IniSettingsProvider.h"

#include <basix/Logger.h>

#include <QtCore/QFileInfo>

namespace tvl::updater {

namespace {

QString groupForm(QString key)
{
    return key.replace(QLatin1Char('.'), QLatin1Char('/'));
}

// What stands in the way of reading and writing `file` now, as near as the file system tells;
// empty when nothing does.
QString obstacle(const QString& file)
{
    const QFileInfo info(file);
    if (info.isDir())
        return QStringLiteral("a directory is in the file's place");
    if (info.exists() && !info.isReadable())
        return QStringLiteral("the file cannot be read");
    // The file is written as a new one in its directory, which then replaces it.
    const QFileInfo directory(info.absolutePath());
    if (!directory.isDir())
        return QStringLiteral("the directory %1 cannot be created").arg(directory.absoluteFilePath());
    if (!directory.isWritable())
        return QStringLiteral("the directory %1 cannot be written").arg(directory.absoluteFilePath());
    return QString();
}

} // namespace

IniSettingsProvider::IniSettingsProvider(QSettings* settings,
                                         ISettingsProvider::SettingsProviderType type,
                                         QObject* parent)
    : ISettingsProvider(type, parent)
    , m_settings(settings)
{
}

IniSettingsProvider::IniSettingsProvider(const QString& path,
                                         ISettingsProvider::SettingsProviderType type,
                                         QObject* parent)
    : ISettingsProvider(type, parent)
    , m_settings(new QSettings(path, QSettings::IniFormat, this))
{
}

IniSettingsProvider::~IniSettingsProvider() = default;

QVariant IniSettingsProvider::getSetting(const QString& key) const
{
    return m_settings->value(groupForm(key), QVariant());
}

void IniSettingsProvider::setSetting(const QString& key, const QVariant& value)
{
    // QSettings::remove() with an empty key would empty the whole file, and setValue() refuses
    // an empty key anyway.
    if (key.isEmpty())
        return;
    m_settings->remove(key);
    m_settings->setValue(groupForm(key), value);
    sync();
}

QStringList IniSettingsProvider::keys() const
{
    return m_settings->allKeys();
}

void IniSettingsProvider::clear()
{
    m_settings->clear();
    sync();
}

// QSettings drops what it cannot write without a word; it only tells when asked, and then tells
// of the first failure for good. A failure is therefore new when the status was fine until this
// write, or when the file system shows another cause than the one logged last; it is over when
// the file system shows none.
void IniSettingsProvider::sync()
{
    m_settings->sync();
    const QSettings::Status status = m_settings->status();
    if (status == QSettings::NoError)
        return;
    const QString file = m_settings->fileName();
    QString failure = status == QSettings::FormatError ? QStringLiteral("the file is not in INI format")
                                                       : obstacle(file);
    const bool first = !m_failed;
    m_failed = true;
    if (failure.isEmpty() && !first) {
        m_failure.clear();
        return;
    }
    if (failure.isEmpty())
        failure = QStringLiteral("the file cannot be written");
    if (failure == m_failure)
        return;
    m_failure = failure;
    TVL_LOG(tvl::Logger::Warning) << QStringLiteral("Preferences cannot be saved to %1: %2").arg(file, failure);
}

} // namespace tvl::updater
