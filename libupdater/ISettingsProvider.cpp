#include "ISettingsProvider.h"

namespace tvl::updater {

ISettingsProvider::ISettingsProvider(SettingsProviderType type, QObject* parent)
    : QObject(parent)
    , m_type(type)
{
}

ISettingsProvider::~ISettingsProvider() = default;

ISettingsProvider::SettingsProviderType ISettingsProvider::type() const
{
    return m_type;
}

QVariant ISettingsProvider::getSetting(const QString&) const
{
    return QVariant();
}

void ISettingsProvider::setSetting(const QString&, const QVariant&)
{
}

void ISettingsProvider::save()
{
}

void ISettingsProvider::update(const QString&, const QVariant&)
{
}

void ISettingsProvider::clear()
{
}

} // namespace tvl::updater
