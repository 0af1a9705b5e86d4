#pragma once

#include <libupdater/LibupdaterExport.h>
#include <libupdater/SettingsAttributes.h>

#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVariant>

namespace tvl::updater {

/**
 * The layered settings store. Keys are dotted paths; an invalid QVariant means that no layer
 * has a value.
 */
class LIBUPDATER_EXPORT ISettingsManager : public QObject
{
    Q_OBJECT

public:
    explicit ISettingsManager(QObject* parent = nullptr);
    ~ISettingsManager() override;

    /// The value of `key` from the first of the layers chosen by the scope bits of
    /// `attributes` that has one.
    virtual QVariant getSetting(const QString& key, SettingsAttributes attributes) const = 0;
    /// Writes the run-time layer, and the persistent one too when `persist` is true;
    /// settingChanged() follows when `notify` is true and the visible value changed.
    virtual void setSetting(const QString& key, const QVariant& value, bool persist, bool notify) = 0;
    virtual void save() = 0;
    /// Every key in the chosen layers, each once.
    virtual QStringList keys(SettingsAttributes attributes) const = 0;
    virtual void clear() = 0;

    // The meta-object marks the signal protected, since only the implementation emits it;
    // for C++ it stays public so that consumers can connect through member-function pointers.
#ifdef Q_MOC_RUN
protected:
#else
public:
#endif
    Q_SIGNAL void settingChanged(const QString& key, const QVariant& value);
};

/**
 * A list-valued setting as a string list. A list stays as it is; a string is split at its commas,
 * each item without surrounding blanks, empty items dropped: that is how a list is given on the
 * command line ("--plugins.disable=alpha,beta"), and how a one-element list comes back from the
 * preferences file.
 */
LIBUPDATER_EXPORT QStringList setting_to_string_list(const QVariant& value);

} // namespace tvl::updater
