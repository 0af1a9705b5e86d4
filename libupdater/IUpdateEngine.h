#pragma once

#include <libupdater/LibupdaterExport.h>

#include <vantor/VantorTypes.h>

#include <QtCore/QFlags>
#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tvl::updater {

/**
 * The update engine that a plugin provides for one or more projects (games and the launcher
 * itself). Checks and updates run asynchronously: the engine reports through its signals.
 */
class LIBUPDATER_EXPORT IUpdateEngine : public QObject
{
    Q_OBJECT

public:
    /**
     * What an engine or a project is doing. Initializing is the empty set: compare it for
     * equality, a bitwise test is always false. Every other state is a bit of its own, so that
     * states combine (an executable project with an update pending, for instance).
     */
    enum UpdateStateE {
        Initializing = 0x000,
        CheckingUpdates = 0x002,
        ElevationRequested = 0x004,
        Updating = 0x008,
        UpToDate = 0x010,
        Executable = 0x020,
        UpdatePending = 0x040,
        UpdateBlockedByProcess = 0x080,
        UpdateFailed = 0x100
    };
    Q_ENUM(UpdateStateE)
    Q_DECLARE_FLAGS(UpdateState, UpdateStateE)

    explicit IUpdateEngine(QObject* parent = nullptr);
    ~IUpdateEngine() override;

    /// The names of the projects this engine updates.
    virtual QStringList projects() const = 0;
    /// The overall state of the engine.
    virtual UpdateState state() const = 0;
    /// The state of one project; Initializing for a project the engine does not know.
    virtual UpdateState projectState(const QString& project) const = 0;
    /// Starts looking for updates of `project`; false when it cannot start (unknown project,
    /// or the engine is busy with it).
    virtual bool checkForUpdates(const QString& project) = 0;
    /// Starts updating `project`; projectUpdated() reports the outcome. False when it cannot start.
    virtual bool update(const QString& project) = 0;
    /// Stops every check and update in progress; each ends with its own state signal.
    virtual void cancel() = 0;

    // The meta-object marks the signals protected, since only the implementation emits them;
    // for C++ they stay public so that consumers can connect through member-function pointers.
#ifdef Q_MOC_RUN
protected:
#else
public:
#endif
    /// What the engine knows about `project` changed (its version, files or settings).
    Q_SIGNAL void projectChanged(const QString& project);
    /// The engine's overall state changed.
    Q_SIGNAL void stateChanged(tvl::updater::IUpdateEngine::UpdateState);
    /// The state of one project changed.
    Q_SIGNAL void stateChanged(const QString& project, tvl::updater::IUpdateEngine::UpdateState);
    Q_SIGNAL void progress(tvl::vantor::Progress);
    /// Progress of local work (hashing, patching) as a fraction from 0 to 1.
    Q_SIGNAL void computationProgress(double);
    Q_SIGNAL void projectUpdated(tvl::vantor::UpdateResultPtr result);
    Q_SIGNAL void allProjectsUpdated();
};

} // namespace tvl::updater

Q_DECLARE_OPERATORS_FOR_FLAGS(tvl::updater::IUpdateEngine::UpdateState)
