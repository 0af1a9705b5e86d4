#include "CommandlineSettingsProvider.h"

#include <libupdater/Updater.h>

#include <basix/SimpleCommandLineParser.h>

namespace tvl::updater {

CommandlineSettingsProvider::CommandlineSettingsProvider(QObject* parent)
    : ISettingsProvider(CommandlineProvider, parent)
    , m_parser(tv_updater_args())
{
}

CommandlineSettingsProvider::~CommandlineSettingsProvider() = default;

QVariant CommandlineSettingsProvider::getSetting(const QString& key) const
{
    // A blank as the one-letter name: settings have no short form.
    return m_parser->option(key, QChar(u' '), QVariant());
}

QStringList CommandlineSettingsProvider::keys() const
{
    return m_parser->keys();
}

} // namespace tvl::updater
