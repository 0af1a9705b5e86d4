#pragma once

#include <libupdater/LibupdaterExport.h>

#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QVariant>

namespace tvl::updater {

/// Information about the host system, gathered by a plugin.
class LIBUPDATER_EXPORT ISystemInfo : public QObject
{
    Q_OBJECT

public:
    explicit ISystemInfo(QObject* parent = nullptr);
    ~ISystemInfo() override;

    /// The operating system's name and version as shown to users, e.g. "Debian GNU/Linux 12".
    virtual QString osName() const = 0;
    /**
     * One piece of information by its dotted key, such as "cpu.model", "memory.total" (bytes)
     * or "gpu.vendor"; an invalid QVariant when the plugin does not know it.
     */
    virtual QVariant value(const QString& key) const = 0;
};

} // namespace tvl::updater
