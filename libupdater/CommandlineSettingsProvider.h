#pragma once

#include <libupdater/ISettingsProvider.h>
#include <libupdater/LibupdaterExport.h>

namespace tvl {
class SimpleCommandLineParser;
}

namespace tvl::updater {

/**
 * The options of the updater's own command line (tv_updater_args()) as settings: the key
 * "display.width" reads the value of "--display.width=...". Options without a value and
 * options not given read as absent (an invalid QVariant); "--name=" reads as an empty string.
 * Read-only: writes and clear() change nothing.
 */
class LIBUPDATER_EXPORT CommandlineSettingsProvider : public ISettingsProvider
{
    Q_OBJECT

public:
    explicit CommandlineSettingsProvider(QObject* parent = nullptr);
    ~CommandlineSettingsProvider() override;

    QVariant getSetting(const QString& key) const override;
    /// The names of all options and switches given, without their dashes.
    QStringList keys() const override;

private:
    // Process-wide, never deleted.
    const tvl::SimpleCommandLineParser* const m_parser;
};

} // namespace tvl::updater
