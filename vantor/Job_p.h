#pragma once

#include "Fetcher_p.h"
#include "InstallDirectory_p.h"
#include "Manifest_p.h"
#include "ReleaseRecord_p.h"

#include <vantor/Operation.h>

#include <QtCore/QThreadPool>

#include <functional>
#include <memory>

namespace tvl::vantor {

/// Thrown nowhere: every step returns whether it failed, and the first failure is the result.
struct Failure
{
    ErrorCode code = ErrorCode::NoError;
    QString message;
    explicit operator bool() const { return code != ErrorCode::NoError; }
};

/**
 * The body of one operation. run() executes on a worker thread of its own and blocks there;
 * transfers go through the Fetcher on the operation's thread, and the heavy work is spread over
 * a pool of low-priority threads.
 */
class Job
{
public:
    Job(Operation::Kind kind, const Options& options, std::shared_ptr<JobContext> context, Fetcher* fetcher);
    ~Job();

    /// Runs the operation to its end and returns its result.
    UpdateResultPtr run();

private:
    // Operations (Job.cpp, UpdateJob.cpp, PublishJob.cpp).
    Failure check();
    Failure status();
    Failure verify();
    Failure setChannel();
    Failure uninstall();
    Failure installOrUpdate();
    Failure repair();
    Failure rollback();
    Failure publish();

    // Shared steps.
    Failure lockAndRecover();
    /// Takes the lock, completes an interrupted run, and reads what is installed.
    Failure openInstalled(InstallState* state, Manifest* manifest);
    Failure fetch(const QString& path, qint64 maxBytes, QByteArray* body);
    Failure fetchRecord(const QString& channel, const InstallState* state, ReleaseRecord* record);
    Failure fetchManifest(const ReleaseRecord& record, Manifest* manifest);
    /// Paths of files, links and directories of `manifest` that are not as it says.
    Failure findDamage(const Manifest& manifest, QStringList* damaged);

    struct SourceTree
    {
        QString root;
        const Manifest* manifest;
    };
    /// Builds `targets` of `next` in the staging area from the chunks that `sources` hold,
    /// the chunks kept from an interrupted run and, for the rest, the repository.
    Failure stage(const Manifest& next, const QList<const Manifest::File*>& targets, const QList<SourceTree>& sources);
    /// The journal that turns `current` (may be null) into `next`, for the staged `targets`;
    /// new links, and those in `repairLinks`, are staged here.
    Failure journalFor(const Manifest& next, const Manifest* current, const QList<const Manifest::File*>& targets,
                       const QStringList& repairLinks, Journal* journal);
    /// Hard links to the files that `journal` replaces or deletes, kept for a rollback when
    /// they fit the limit; false when they do not.
    Failure keepForRollback(const Manifest& current, const InstallState& state, const Journal& journal,
                            const QList<const Manifest::File*>& targets, bool* kept);
    Failure writeStaged(const QString& name, const QByteArray& content);

    /// Runs `work(i)` for i in 0..count-1 on the pool and waits.
    void parallelFor(int count, const std::function<void(int)>& work);
    bool cancelled() const { return m_context->cancelled; }
    Failure cancelledFailure() const;
    QString repositoryPath(const QString& relative) const;

    Operation::Kind m_kind;
    Options m_options;
    std::shared_ptr<JobContext> m_context;
    Fetcher* m_fetcher;
    InstallDirectory m_directory;
    UpdateResultPtr m_result;
    QThreadPool m_pool;
};

} // namespace tvl::vantor
