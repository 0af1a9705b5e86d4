#include "IniSettingsProvider.h"

namespace tvl::updater {

namespace {

QString groupForm(QString key)
{
    return key.replace(QLatin1Char('.'), QLatin1Char('/'));
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
}

QStringList IniSettingsProvider::keys() const
{
    return m_settings->allKeys();
}

void IniSettingsProvider::clear()
{
    m_settings->clear();
}

} // namespace tvl::updater
