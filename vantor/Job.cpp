#include "Job_p.h"

#include "Crypto_p.h"
#include "Zstd_p.h"

#include <basix/Filesystem.h>
#include <basix/Logger.h>

#include <QtCore/QDateTime>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QMutex>
#include <QtCore/QThread>

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tvl::vantor {

namespace {

/// The largest manifest a client accepts; far above what a million files need.
constexpr qint64 ManifestLimit = 512 * 1024 * 1024;
/// Files are verified in spans of about this size, so that one large file keeps both cores busy.
constexpr qint64 SpanBytes = 8 * 1024 * 1024;

} // namespace

Job::Job(Operation::Kind kind, const Options& options, std::shared_ptr<JobContext> context, Fetcher* fetcher)
    : m_kind(kind)
    , m_options(options)
    , m_context(std::move(context))
    , m_fetcher(fetcher)
    , m_directory(options.installDirectory.isEmpty() ? QDir::currentPath() : options.installDirectory)
    , m_result(new UpdateResult)
{
    m_pool.setMaxThreadCount(std::max(2, QThread::idealThreadCount()));
    m_pool.setThreadPriority(QThread::LowPriority);
    m_result->project = options.project;
    m_result->channel = options.channel;
}

Job::~Job()
{
    m_pool.waitForDone();
}

UpdateResultPtr Job::run()
{
    Failure failure;
    if (m_kind != Operation::Publish && m_kind != Operation::Status && m_options.installDirectory.isEmpty())
        failure = {ErrorCode::InvalidArguments, QStringLiteral("No install directory was given.")};
    else if ((m_kind == Operation::Check || m_kind == Operation::Install || m_kind == Operation::Update)
             && (m_options.project.isEmpty() || m_options.repository.isEmpty() || m_options.trustedKeys.isEmpty()))
        failure = {ErrorCode::InvalidArguments,
                   QStringLiteral("A repository URL, a project and at least one trusted public key are needed.")};
    if (!failure) {
        switch (m_kind) {
        case Operation::Check: failure = check(); break;
        case Operation::Install:
        case Operation::Update: failure = installOrUpdate(); break;
        case Operation::Verify: failure = verify(); break;
        case Operation::Repair: failure = repair(); break;
        case Operation::Rollback: failure = rollback(); break;
        case Operation::Uninstall: failure = uninstall(); break;
        case Operation::Status: failure = status(); break;
        case Operation::SetChannel: failure = setChannel(); break;
        case Operation::Publish: failure = publish(); break;
        }
    }
    m_pool.waitForDone();
    m_context->setStage(Progress::Idle);
    if (failure && cancelled())
        failure = cancelledFailure();
    m_result->success = !failure;
    m_result->error = failure.code;
    m_result->errorString = failure.message;
    m_result->bytesDownloaded = m_context->bytesDownloaded;
    if (failure)
        TVL_LOG(tvl::Logger::Warning) << Operation::kindName(m_kind) << "failed:" << failure.message;
    return m_result;
}

Failure Job::cancelledFailure() const
{
    return {ErrorCode::Cancelled,
            QStringLiteral("Cancelled. What was fetched and verified is kept: run it again to go on from there.")};
}

QString Job::repositoryPath(const QString& relative) const
{
    return m_options.project + QLatin1Char('/') + relative;
}

void Job::parallelFor(int count, const std::function<void(int)>& work)
{
    std::atomic<int> nextIndex{0};
    const int workers = std::min(count, m_pool.maxThreadCount());
    for (int i = 0; i < workers; ++i) {
        m_pool.start([&] {
            for (int index = nextIndex++; index < count && !cancelled(); index = nextIndex++)
                work(index);
        });
    }
    m_pool.waitForDone();
}

Failure Job::lockAndRecover()
{
    QString message;
    ErrorCode code = m_directory.lock(m_options.lockTimeoutMs, &message);
    if (code == ErrorCode::NoError)
        code = m_directory.recover(&message);
    return {code, message};
}

Failure Job::fetch(const QString& path, qint64 maxBytes, QByteArray* body)
{
    m_fetcher->enqueue({FetchItem{-1, path, maxBytes}});
    FetchOutcome outcome;
    if (!m_context->next(&outcome))
        return cancelledFailure();
    m_context->releaseBacklog(outcome.body.size(), m_fetcher);
    if (outcome.error != ErrorCode::NoError)
        return {outcome.error, outcome.message};
    *body = std::move(outcome.body);
    return {};
}

Failure Job::fetchRecord(const QString& channel, const InstallState* state, ReleaseRecord* record)
{
    QByteArray body;
    if (Failure failure = fetch(repositoryPath(QStringLiteral("channels/%1.json").arg(channel)), 64 * 1024, &body))
        return failure;
    QString message;
    const ErrorCode code = record->verify(body, m_options.trustedKeys, m_options.project, channel,
                                          QDateTime::currentDateTimeUtc(), &message);
    if (code != ErrorCode::NoError)
        return {code, message};
    const qint64 accepted = state ? state->serials.value(channel, 0) : 0;
    if (record->serial < accepted)
        return {ErrorCode::RollbackAttack,
                QStringLiteral("The release record of channel \"%1\" has serial %2, older than serial %3 that this "
                               "install already accepted: someone is serving an old release. Nothing was changed; "
                               "try again later or ask the publisher.")
                    .arg(channel, QString::number(record->serial), QString::number(accepted))};
    m_result->serial = record->serial;
    return {};
}

Failure Job::fetchManifest(const ReleaseRecord& record, Manifest* manifest)
{
    if (record.manifestSize > ManifestLimit)
        return {ErrorCode::HashMismatch, QStringLiteral("The release record announces a manifest too large to be real.")};
    QByteArray stored;
    if (Failure failure = fetch(repositoryPath(QStringLiteral("manifests/%1.zst").arg(QString::fromLatin1(record.manifestSha256))),
                                record.manifestSize, &stored))
        return failure;
    const QString tampered = QStringLiteral("The manifest of version %1 is not the one its release record was signed for: "
                                            "the repository is damaged or was tampered with. Nothing was changed.")
                                 .arg(record.version);
    if (stored.size() != record.manifestSize || Sha256::hex(stored) != record.manifestSha256)
        return {ErrorCode::HashMismatch, tampered};
    const QByteArray json = zstd::decompress(stored, ManifestLimit);
    QString reason;
    bool unsafe = false;
    if (json.isNull() || !manifest->fromJson(json, &reason, &unsafe))
        return {unsafe ? ErrorCode::PathEscape : ErrorCode::HashMismatch,
                QStringLiteral("The manifest of version %1 is refused: %2. Nothing was changed.").arg(record.version, reason)};
    if (manifest->project != record.project || manifest->version != record.version)
        return {ErrorCode::HashMismatch, tampered};
    return {};
}

Failure Job::check()
{
    InstallState state;
    QString message;
    const bool installed = m_directory.isInstalled();
    if (installed) {
        if (const ErrorCode code = m_directory.readState(&state, &message); code != ErrorCode::NoError)
            return {code, message};
    }
    const QString channel = installed ? state.channel : m_options.channel;
    m_context->setStage(Progress::Checking);
    ReleaseRecord record;
    if (Failure failure = fetchRecord(channel, installed ? &state : nullptr, &record))
        return failure;
    m_result->channel = channel;
    m_result->version = record.version;
    m_result->previousVersion = state.version;
    m_result->updateAvailable = !installed || record.manifestSha256 != state.manifestSha256;
    m_result->pinned = state.pinned;
    return {};
}

Failure Job::status()
{
    InstallState state;
    QString message;
    if (const ErrorCode code = m_directory.readState(&state, &message); code != ErrorCode::NoError)
        return {code, message};
    m_result->project = state.project;
    m_result->channel = state.channel;
    m_result->version = state.version;
    m_result->serial = state.serials.value(state.channel);
    m_result->pinned = state.pinned;
    m_result->rollbackPossible = QFile::exists(m_directory.meta(QStringLiteral("rollback/manifest.json")));
    return {};
}

Failure Job::setChannel()
{
    if (Failure failure = lockAndRecover())
        return failure;
    InstallState state;
    QString message;
    ErrorCode code = m_directory.readState(&state, &message);
    if (code == ErrorCode::NoError && m_options.channel.isEmpty())
        return {ErrorCode::InvalidArguments, QStringLiteral("No channel was given.")};
    if (code == ErrorCode::NoError) {
        m_result->previousVersion = state.version;
        state.channel = m_options.channel;
        code = m_directory.writeState(state, &message);
    }
    m_result->version = state.version;
    return {code, message};
}

Failure Job::findDamage(const Manifest& manifest, QStringList* damaged)
{
    struct Span
    {
        int file;
        int firstChunk;
        int endChunk;
        qint64 offset;
    };
    QList<Span> spans;
    std::vector<std::atomic<bool>> bad(size_t(manifest.files.size()));
    for (int i = 0; i < manifest.files.size(); ++i) {
        const Manifest::File& file = manifest.files.at(i);
        struct stat status;
        const bool present = ::lstat(QFile::encodeName(m_directory.path(file.path)).constData(), &status) == 0;
        if (!present || !S_ISREG(status.st_mode) || status.st_size != file.size
            || bool(status.st_mode & S_IXUSR) != file.executable) {
            bad[size_t(i)] = true;
            continue;
        }
        qint64 offset = 0, spanBytes = 0;
        int first = 0;
        for (int c = 0; c < file.chunks.size(); ++c) {
            const qint64 size = manifest.chunks.value(file.chunks.at(c)).size;
            spanBytes += size;
            if (spanBytes >= SpanBytes || c + 1 == file.chunks.size()) {
                spans.append({i, first, c + 1, offset});
                offset += spanBytes;
                spanBytes = 0;
                first = c + 1;
            }
        }
    }
    m_context->setStage(Progress::Verifying, manifest.totalSize(), int(manifest.files.size()));
    parallelFor(int(spans.size()), [&](int index) {
        const Span& span = spans.at(index);
        const Manifest::File& file = manifest.files.at(span.file);
        if (bad[size_t(span.file)])
            return;
        const int fd = ::open(QFile::encodeName(m_directory.path(file.path)).constData(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) {
            bad[size_t(span.file)] = true;
            return;
        }
        // One buffer per worker: a fresh one per span would map and unmap a quarter of a megabyte each time.
        thread_local QByteArray buffer;
        Sha256 hash;
        qint64 offset = span.offset;
        for (int c = span.firstChunk; c < span.endChunk && !bad[size_t(span.file)]; ++c) {
            const qint64 size = manifest.chunks.value(file.chunks.at(c)).size;
            buffer.resize(size);
            if (::pread(fd, buffer.data(), size_t(size), offset) != size) {
                bad[size_t(span.file)] = true;
                break;
            }
            hash.add(buffer);
            if (hash.hexDigest() != file.chunks.at(c))
                bad[size_t(span.file)] = true;
            offset += size;
            m_context->bytesDone += size;
        }
        ::close(fd);
        if (span.endChunk == file.chunks.size())
            ++m_context->filesDone;
    });
    if (cancelled())
        return cancelledFailure();
    for (int i = 0; i < manifest.files.size(); ++i) {
        if (bad[size_t(i)])
            damaged->append(manifest.files.at(i).path);
    }
    for (const Manifest::Symlink& link : manifest.symlinks) {
        char target[4096];
        const ssize_t length = ::readlink(QFile::encodeName(m_directory.path(link.path)).constData(), target, sizeof target);
        if (length < 0 || QByteArray(target, int(length)) != QFile::encodeName(link.target))
            damaged->append(link.path);
    }
    for (const QString& directory : manifest.directories) {
        struct stat status;
        if (::lstat(QFile::encodeName(m_directory.path(directory)).constData(), &status) != 0 || !S_ISDIR(status.st_mode))
            damaged->append(directory);
    }
    return {};
}

Failure Job::openInstalled(InstallState* state, Manifest* manifest)
{
    if (Failure failure = lockAndRecover())
        return failure;
    QString message;
    ErrorCode code = m_directory.readState(state, &message);
    if (code == ErrorCode::NoError)
        code = m_directory.readManifest(manifest, &message);
    if (code != ErrorCode::NoError)
        return {code, message};
    return {};
}

Failure Job::verify()
{
    InstallState state;
    Manifest manifest;
    if (Failure failure = openInstalled(&state, &manifest))
        return failure;
    m_result->version = state.version;
    m_result->channel = state.channel;
    QStringList damaged;
    if (Failure failure = findDamage(manifest, &damaged))
        return failure;
    m_result->damagedFiles = damaged;
    if (!damaged.isEmpty())
        return {ErrorCode::Damaged, QStringLiteral("%1 of the installed files are damaged or missing (%2). Run \"vantor repair\": "
                                                   "it fetches only what they lack.")
                                        .arg(QString::number(damaged.size()), damaged.mid(0, 5).join(QStringLiteral(", ")))};
    return {};
}

Failure Job::uninstall()
{
    InstallState state;
    Manifest manifest;
    if (Failure failure = openInstalled(&state, &manifest))
        return failure;
    m_result->previousVersion = state.version;
    m_context->setStage(Progress::Finishing);
    Journal journal;
    journal.uninstall = true;
    for (const Manifest::File& file : manifest.files)
        journal.deletes.append(file.path);
    for (const Manifest::Symlink& link : manifest.symlinks)
        journal.deletes.append(link.path);
    journal.removeDirectories = manifest.directories;
    std::sort(journal.removeDirectories.rbegin(), journal.removeDirectories.rend());
    m_result->updatedFiles = journal.deletes;
    QString message;
    const ErrorCode code = m_directory.commit(journal, &message);
    if (code == ErrorCode::NoError) {
        m_directory.unlock();
        tvl::Filesystem::remove(m_directory.meta(), tvl::Filesystem::Recursive | tvl::Filesystem::IgnoreMissing);
    }
    return {code, message};
}

} // namespace tvl::vantor
