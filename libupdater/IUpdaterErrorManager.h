#pragma once

#include <libupdater/LibupdaterExport.h>
#include <libupdater/UpdaterError.h>

#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QString>

namespace tvl::updater {

/**
 * Keeps the errors that plugins report, for display to the user and for support. Plugins
 * report an error by posting an UpdaterPluginErrorEvent, which the implementation (the bundled
 * errors plugin) receives and accepts when it keeps the error.
 */
class LIBUPDATER_EXPORT IUpdaterErrorManager : public QObject
{
    Q_OBJECT

public:
    explicit IUpdaterErrorManager(QObject* parent = nullptr);
    ~IUpdaterErrorManager() override;

    /// Keeps `error`; what happens to an error kept already, and how many are kept, is the
    /// implementation's policy.
    virtual void addError(const UpdaterError& error) = 0;
    /// Removes every error whose errorId() is `errorId`.
    virtual void removeError(const QString& errorId) = 0;
    /// The errors, oldest first.
    virtual QList<UpdaterError> errors() const = 0;
    /// The most recent error, or a null error when there is none.
    virtual UpdaterError lastError() const = 0;
    virtual void clear() = 0;

    // The meta-object marks the signal protected, since only the implementation emits it;
    // for C++ it stays public so that consumers can connect through member-function pointers.
#ifdef Q_MOC_RUN
protected:
#else
public:
#endif
    /// The set of errors changed; emitted once for every change, and only then.
    Q_SIGNAL void errorsModified();
};

} // namespace tvl::updater
