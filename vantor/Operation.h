#pragma once

#include <vantor/Options.h>
#include <vantor/VantorTypes.h>

#include <QtCore/QObject>
#include <QtCore/QScopedPointer>

namespace tvl::vantor {

/**
 * One asynchronous operation on an install directory or a repository.
 *
 * start() returns at once: transfers run on the thread of the operation (through its
 * transport), while reading, hashing, decompressing and writing run on worker threads at a
 * lower priority. progress() is emitted at least four times a second while it runs, and
 * finished() exactly once, with the result. cancel() ends it at any moment with the error
 * Cancelled; what was fetched and verified is kept, so that starting the same operation again
 * fetches nothing twice (pause and resume).
 *
 * Install, update, repair, rollback, verify, uninstall and set-channel hold a lock on the
 * install directory, and first complete whatever an earlier run left half done.
 */
class VANTOR_EXPORT Operation : public QObject
{
    Q_OBJECT

public:
    enum Kind {
        Check,        ///< fetch and verify the channel's record: is there an update?
        Install,      ///< install the channel's version into an empty or installed directory
        Update,       ///< move an installed directory to the channel's version
        Verify,       ///< hash every installed file against the installed manifest
        Repair,       ///< verify, then fetch what the damaged files lack
        Rollback,     ///< go back to the version before the last update
        Uninstall,    ///< remove every installed file and the directory's own records
        Status,       ///< the installed version, channel, serial, whether a rollback is possible
        SetChannel,   ///< follow options().channel from the next update on
        Publish       ///< publish options().sourceDirectory into options().repositoryDirectory
    };
    Q_ENUM(Kind)

    Operation(Kind kind, const Options& options, QObject* parent = nullptr);
    /// Cancels the operation if it still runs and waits for its workers.
    ~Operation() override;

    Kind kind() const;
    Options options() const;
    bool isRunning() const;
    bool isFinished() const;
    /// The outcome; null until finished() was emitted.
    UpdateResultPtr result() const;
    /// The last progress reported.
    Progress lastProgress() const;

    /// The name of a kind as the tool spells it ("set-channel").
    static QString kindName(Kind kind);

public Q_SLOTS:
    void start();
    void cancel();

Q_SIGNALS:
    void progress(tvl::vantor::Progress);
    void finished(tvl::vantor::UpdateResultPtr result);

private:
    Q_DISABLE_COPY(Operation)
    QScopedPointer<class OperationPrivate> d;
};

} // namespace tvl::vantor
