#include "Job_p.h"

#include "Crypto_p.h"
#include "Zstd_p.h"

#include <basix/Filesystem.h>
#include <basix/Logger.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QScopeGuard>
#include <QtCore/QSet>
#include <QtCore/QStorageInfo>

#include <cerrno>
#include <system_error>
#include <thread>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tvl::vantor {

namespace {

/// Room left free beyond what an update needs, for the records and the journal.
constexpr qint64 SpaceMargin = 1024 * 1024;

/// Staged files from this size on are allocated whole before their chunks are written.
constexpr qint64 PreallocateFrom = 1024 * 1024;

const QString StagedList = QStringLiteral("staged.json");
/// Hashes of the fetched chunks placed in the staged files so far, one a line.
const QString LandedList = QStringLiteral("landed");

QByteArray encoded(const QString& path)
{
    return QFile::encodeName(path);
}

bool readRange(const QString& path, qint64 offset, qint64 size, QByteArray* data)
{
    const int fd = ::open(encoded(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    data->resize(size);
    const bool ok = ::pread(fd, data->data(), size_t(size), offset) == size;
    ::close(fd);
    return ok;
}

mode_t modeOf(const Manifest::File& file)
{
    return file.executable ? 0755 : 0644;
}

void noteLanded(int landedFd, const QByteArray& sha256)
{
    const QByteArray line = sha256 + '\n';
    // Without the line a later run fetches the chunk again; nothing worse.
    if (landedFd >= 0 && ::write(landedFd, line.constData(), size_t(line.size())) != line.size())
        TVL_LOG(tvl::Logger::Debug) << "Cannot note a landed chunk:" << qt_error_string(errno);
}

QString megabytes(qint64 bytes)
{
    return QString::number(double(bytes) / 1e6, 'f', 1) + QStringLiteral(" MB");
}

QStringList parentsOf(const QString& path)
{
    QStringList parents;
    for (qsizetype slash = path.indexOf(QLatin1Char('/')); slash >= 0; slash = path.indexOf(QLatin1Char('/'), slash + 1))
        parents.append(path.left(slash));
    return parents;
}

QList<const Manifest::File*> changedFiles(const Manifest& next, const Manifest* current)
{
    QList<const Manifest::File*> targets;
    for (const Manifest::File& file : next.files) {
        const Manifest::File* old = current ? current->file(file.path) : nullptr;
        if (!old || old->sha256 != file.sha256 || old->executable != file.executable)
            targets.append(&file);
    }
    return targets;
}

} // namespace

Failure Job::writeStaged(const QString& name, const QByteArray& content)
{
    if (const int error = InstallDirectory::replaceFile(m_directory.staging(name), content))
        return {InstallDirectory::codeFor(error),
                QStringLiteral("Cannot write %1: %2. Nothing was changed.").arg(m_directory.staging(name), qt_error_string(error))};
    return {};
}

Failure Job::stage(const Manifest& next, const QList<const Manifest::File*>& targets, const QList<SourceTree>& sources)
{
    struct Use
    {
        int target;
        qint64 offset;
    };
    enum Source { Download, Local };
    struct Needed
    {
        QByteArray sha256;
        Manifest::Chunk info;
        QList<Use> uses;
        Source source = Download;
    };
    struct Location
    {
        QString path;
        qint64 offset;
    };

    QList<Needed> needed;
    QHash<QByteArray, int> index;
    qint64 stagingBytes = 0;
    for (int t = 0; t < targets.size(); ++t) {
        qint64 offset = 0;
        for (const QByteArray& chunk : targets.at(t)->chunks) {
            int i = index.value(chunk, -1);
            if (i < 0) {
                i = int(needed.size());
                index.insert(chunk, i);
                needed.append({chunk, next.chunks.value(chunk), {}, Download});
            }
            needed[i].uses.append({t, offset});
            offset += needed.at(i).info.size;
        }
        stagingBytes += targets.at(t)->size;
    }
    // The staging area of an interrupted run counts as a source too: the chunks its download had
    // placed (LandedList) or, when it had assembled and verified everything, all of them. A run
    // killed while it copied from there left it in "staging.previous".
    const QString previousStaging = m_directory.meta(QStringLiteral("staging.previous"));
    const QString list = QLatin1Char('/') + StagedList;
    if (QFile::exists(m_directory.staging() + list) || !QFile::exists(previousStaging + list)) {
        tvl::Filesystem::remove(previousStaging, tvl::Filesystem::Recursive | tvl::Filesystem::IgnoreMissing);
        if (QFile::exists(m_directory.staging() + list))
            QFile::rename(m_directory.staging(), previousStaging);
    }
    Manifest staged;
    QSet<QByteArray> landed;
    bool everyChunkLanded = true;
    QList<SourceTree> allSources = sources;
    QFile stagedFile(previousStaging + list);
    QString ignored;
    if (stagedFile.open(QIODevice::ReadOnly) && staged.fromJson(stagedFile.readAll(), &ignored)) {
        QFile landedFile(previousStaging + QLatin1Char('/') + LandedList);
        if (landedFile.open(QIODevice::ReadOnly)) {
            everyChunkLanded = false;
            for (const QByteArray& line : landedFile.readAll().split('\n'))
                landed.insert(line);
        }
        allSources.append({previousStaging, &staged});
    }
    stagedFile.close();

    QHash<QByteArray, QList<Location>> located;
    for (const SourceTree& source : std::as_const(allSources)) {
        const bool onlyLanded = source.root == previousStaging && !everyChunkLanded;
        for (const Manifest::File& file : source.manifest->files) {
            qint64 offset = 0;
            for (const QByteArray& chunk : file.chunks) {
                if (index.contains(chunk) && (!onlyLanded || landed.contains(chunk)))
                    located[chunk].append({source.root + QLatin1Char('/') + file.path, offset});
                offset += source.manifest->chunks.value(chunk).size;
            }
        }
    }

    // The staged files' names, "f<target>", worked out once: every chunk written uses them.
    QStringList stagedNames;
    std::vector<QByteArray> stagedPaths;
    for (int t = 0; t < targets.size(); ++t) {
        stagedNames.append(QStringLiteral("f%1").arg(t));
        stagedPaths.push_back(encoded(m_directory.staging(stagedNames.constLast())));
    }

    // What this directory already holds is read and hash-checked before it is counted on.
    const auto obtain = [&](Needed& chunk, QByteArray* data) {
        for (const Location& location : located.value(chunk.sha256)) {
            if (readRange(location.path, location.offset, chunk.info.size, data) && Sha256::hex(*data) == chunk.sha256) {
                chunk.source = Local;
                return true;
            }
        }
        chunk.source = Download;
        return false;
    };
    const auto place = [&](const Needed& chunk, const QByteArray& data) -> int {
        for (const Use& use : chunk.uses) {
            const int fd = ::open(stagedPaths[size_t(use.target)].constData(), O_WRONLY | O_CREAT | O_CLOEXEC, modeOf(*targets.at(use.target)));
            const bool ok = fd >= 0 && ::pwrite(fd, data.constData(), size_t(data.size()), use.offset) == data.size();
            const int error = errno;
            if (fd >= 0)
                ::close(fd);
            if (!ok)
                return error ? error : EIO;
        }
        return 0;
    };

    // Each staged file is hashed whole as soon as its last chunk is in, while the download goes
    // on; what is left (files of no chunks) is hashed at the end.
    enum Verdict { Unchecked, Matches, Differs };
    std::vector<std::atomic<int>> chunksMissing(size_t(targets.size()));
    std::vector<std::atomic<int>> verdicts(size_t(targets.size()));
    for (const Needed& chunk : std::as_const(needed)) {
        for (const Use& use : chunk.uses)
            ++chunksMissing[size_t(use.target)];
    }
    const auto verifyStaged = [&](int t) {
        // Created here if no chunk did: an empty file.
        const int fd = ::open(stagedPaths[size_t(t)].constData(), O_RDONLY | O_CREAT | O_CLOEXEC, modeOf(*targets.at(t)));
        Sha256 hash;
        if (fd >= 0) {
            thread_local QByteArray buffer;
            buffer.resize(1024 * 1024);
            for (ssize_t read; (read = ::read(fd, buffer.data(), size_t(buffer.size()))) > 0;)
                hash.add(QByteArrayView(buffer.constData(), read));
        }
        const bool matches = fd >= 0 && hash.hexDigest() == targets.at(t)->sha256;
        verdicts[size_t(t)] = matches ? Matches : Differs;
        if (matches) {
            // Its mode as the manifest says, whatever the umask; and the disk starts writing it
            // now, so that the flush before the commit has less to wait for.
            ::fchmod(fd, modeOf(*targets.at(t)));
            ::sync_file_range(fd, 0, 0, SYNC_FILE_RANGE_WRITE);
        }
        if (fd >= 0)
            ::close(fd);
    };
    const auto placed = [&](const Needed& chunk) {
        for (const Use& use : chunk.uses) {
            if (--chunksMissing[size_t(use.target)] != 0)
                continue;
            // A small file of one chunk is that chunk, checked before it was written into a new
            // file (whose mode the creating thread sets).
            if (targets.at(use.target)->chunks.size() == 1 && targets.at(use.target)->size < PreallocateFrom)
                verdicts[size_t(use.target)] = Matches;
            else
                verifyStaged(use.target);
        }
    };

    qint64 localBytes = 0;
    for (const Needed& chunk : std::as_const(needed)) {
        if (located.contains(chunk.sha256))
            localBytes += chunk.info.size;
    }
    m_context->setStage(Progress::Checking, localBytes);
    parallelFor(int(needed.size()), [&](int i) {
        Needed& chunk = needed[i];
        if (!located.contains(chunk.sha256))
            return;
        QByteArray data;
        obtain(chunk, &data);
        m_context->bytesDone += chunk.info.size;
    });
    if (cancelled())
        return cancelledFailure();

    const qint64 available = QStorageInfo(m_directory.root()).bytesAvailable();
    if (available >= 0 && stagingBytes + SpaceMargin > available)
        return {ErrorCode::DiskFull,
                QStringLiteral("Not enough free space in %1: this needs %2 and %3 are free. Free some space and run it "
                               "again; nothing was changed.").arg(m_directory.root(), megabytes(stagingBytes + SpaceMargin),
                                                                  megabytes(available))};

    tvl::Filesystem::remove(m_directory.staging(), tvl::Filesystem::Recursive | tvl::Filesystem::IgnoreMissing);
    if (!QDir().mkpath(m_directory.staging()))
        return {ErrorCode::PermissionDenied, QStringLiteral("Cannot create %1.").arg(m_directory.staging())};
    // Large files are created and given their room at once, so that a full disk shows before
    // their chunks come. The others are created on a thread of their own while the transfers
    // begin (creating a file can wait long for the file system's journal, and the workers must
    // not), or by their first chunk if it comes sooner.
    for (int t = 0; t < targets.size(); ++t) {
        if (targets.at(t)->size < PreallocateFrom)
            continue;
        const int fd = ::open(stagedPaths[size_t(t)].constData(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, modeOf(*targets.at(t)));
        const int error = fd < 0 ? errno : ::posix_fallocate(fd, 0, targets.at(t)->size);
        if (fd >= 0)
            ::close(fd);
        if (error)
            return {InstallDirectory::codeFor(error),
                    QStringLiteral("Cannot stage %1: %2. Nothing was changed.").arg(m_directory.staging(stagedNames.at(t)), qt_error_string(error))};
    }
    // The list of staged files is written before anything is placed in them, and each fetched
    // chunk's hash is added to the landed list once it is in: a run that goes on after this one
    // is interrupted takes those from here instead of fetching them again.
    const int landedFd = ::open(encoded(m_directory.staging(LandedList)).constData(), O_CREAT | O_WRONLY | O_APPEND | O_CLOEXEC, 0644);
    const auto closeLanded = qScopeGuard([landedFd] {
        if (landedFd >= 0)
            ::close(landedFd);
    });
    Manifest stagedList;
    stagedList.chunks = next.chunks;
    for (int t = 0; t < targets.size(); ++t) {
        Manifest::File file = *targets.at(t);
        file.path = stagedNames.at(t);
        stagedList.files.append(file);
    }
    if (Failure failure = writeStaged(StagedList, stagedList.toJson()))
        return failure;

    std::atomic<bool> stopCreating{false};
    std::thread creator;
    const auto createSmallFiles = [&] {
        for (int t = 0; t < targets.size() && !stopCreating; ++t) {
            if (targets.at(t)->size >= PreallocateFrom)
                continue;
            const int fd = ::open(stagedPaths[size_t(t)].constData(), O_CREAT | O_WRONLY | O_CLOEXEC, modeOf(*targets.at(t)));
            if (fd >= 0) {
                ::fchmod(fd, modeOf(*targets.at(t))); // whatever the umask
                ::close(fd);
            }
        }
    };
    try {
        creator = std::thread(createSmallFiles);
    } catch (const std::system_error&) {
        createSmallFiles(); // no thread to spare: here, before the transfers
    }
    const auto joinCreator = qScopeGuard([&] {
        stopCreating = true;
        if (creator.joinable())
            creator.join();
    });

    std::atomic<int> writeError{0};
    m_context->setStage(Progress::Patching, localBytes);
    parallelFor(int(needed.size()), [&](int i) {
        Needed& chunk = needed[i];
        if (chunk.source == Download)
            return;
        QByteArray data;
        if (!obtain(chunk, &data))
            return; // changed since it was checked: fetched below
        if (const int error = place(chunk, data))
            writeError = error;
        else
            placed(chunk);
        m_context->bytesDone += chunk.info.size;
    });
    tvl::Filesystem::remove(previousStaging, tvl::Filesystem::Recursive | tvl::Filesystem::IgnoreMissing);
    if (cancelled())
        return cancelledFailure();
    if (writeError)
        return {InstallDirectory::codeFor(writeError),
                QStringLiteral("Cannot write to %1: %2. Nothing was changed.").arg(m_directory.staging(), qt_error_string(writeError))};

    QList<FetchItem> items;
    qint64 downloadBytes = 0;
    for (int i = 0; i < needed.size(); ++i) {
        const Needed& chunk = needed.at(i);
        if (chunk.source == Download) {
            items.append({i, repositoryPath(QStringLiteral("chunks/%1/%2.zst").arg(QString::fromLatin1(chunk.sha256.left(2)), QString::fromLatin1(chunk.sha256))),
                          chunk.info.storedSize});
            downloadBytes += chunk.info.storedSize;
        }
    }
    if (!items.isEmpty()) {
        if (m_options.repository.isEmpty())
            return {ErrorCode::InvalidArguments,
                    QStringLiteral("%1 chunks must be fetched: give the repository URL.").arg(items.size())};
        m_context->setStage(Progress::Downloading, downloadBytes, int(items.size()));
        m_fetcher->enqueue(items);
        QHash<int, FetchItem> itemById;
        for (const FetchItem& item : std::as_const(items))
            itemById.insert(item.id, item);
        QSet<int> retried;
        Failure failure;
        for (qsizetype remaining = items.size(); remaining > 0;) {
            FetchOutcome outcome;
            if (!m_context->next(&outcome)) {
                failure = cancelledFailure();
                break;
            }
            if (outcome.kind == FetchOutcome::Accepted) {
                --remaining;
                ++m_context->filesDone;
                continue;
            }
            if (outcome.kind == FetchOutcome::Rejected && outcome.error == ErrorCode::HashMismatch && !retried.contains(outcome.id)) {
                // Once: the bytes may have been damaged on the way.
                retried.insert(outcome.id);
                m_context->bytesDone -= needed.at(outcome.id).info.storedSize;
                m_fetcher->enqueue({itemById.value(outcome.id)});
                continue;
            }
            if (outcome.error != ErrorCode::NoError) {
                failure = {outcome.error, outcome.message};
                break;
            }
            const qint64 received = outcome.body.size();
            m_pool.start([this, &needed, &place, &placed, landedFd, outcome = std::move(outcome), received] {
                const Needed& chunk = needed.at(outcome.id);
                FetchOutcome verdict{FetchOutcome::Accepted, outcome.id, {}, ErrorCode::NoError, {}};
                const QByteArray data = received == chunk.info.storedSize ? zstd::decompress(outcome.body, chunk.info.size) : QByteArray();
                if (data.size() != chunk.info.size || Sha256::hex(data) != chunk.sha256) {
                    verdict = {FetchOutcome::Rejected, outcome.id, {}, ErrorCode::HashMismatch,
                               QStringLiteral("Chunk %1 from the repository is not what the signed manifest says: the repository "
                                              "is damaged or was tampered with. Nothing was changed.").arg(QString::fromLatin1(chunk.sha256))};
                } else if (const int error = place(chunk, data)) {
                    verdict = {FetchOutcome::Rejected, outcome.id, {}, InstallDirectory::codeFor(error),
                               QStringLiteral("Cannot write to %1: %2. Nothing was changed.").arg(m_directory.staging(), qt_error_string(error))};
                } else {
                    noteLanded(landedFd, chunk.sha256);
                    placed(chunk);
                }
                m_context->releaseBacklog(received, m_fetcher);
                m_context->deliver(std::move(verdict));
            });
        }
        if (failure) {
            m_fetcher->stop();
            m_pool.waitForDone();
            return failure;
        }
        m_pool.waitForDone();
    }

    if (creator.joinable())
        creator.join();
    // Every staged file is checked whole before anything in the tree is touched.
    qint64 uncheckedBytes = 0;
    int unchecked = 0;
    for (int t = 0; t < targets.size(); ++t) {
        if (verdicts[size_t(t)] == Unchecked)
            uncheckedBytes += targets.at(t)->size, ++unchecked;
    }
    m_context->setStage(Progress::Verifying, uncheckedBytes, unchecked);
    parallelFor(int(targets.size()), [&](int t) {
        if (verdicts[size_t(t)] != Unchecked)
            return;
        verifyStaged(t);
        m_context->bytesDone += targets.at(t)->size;
        ++m_context->filesDone;
    });
    if (cancelled())
        return cancelledFailure();
    for (int t = 0; t < targets.size(); ++t) {
        if (verdicts[size_t(t)] != Matches)
            return {ErrorCode::HashMismatch,
                    QStringLiteral("The assembled %1 does not match the manifest: a file changed while it was read. Nothing "
                                   "was changed; run it again.").arg(targets.at(t)->path)};
    }
    // Every chunk is in now: a later run may take any of them from here.
    QFile::remove(m_directory.staging(LandedList));
    return {};
}

Failure Job::journalFor(const Manifest& next, const Manifest* current, const QList<const Manifest::File*>& targets,
                        const QStringList& repairLinks, Journal* journal)
{
    for (int t = 0; t < targets.size(); ++t)
        journal->moves.append({QStringLiteral("f%1").arg(t), targets.at(t)->path});
    for (int l = 0; l < next.symlinks.size(); ++l) {
        const Manifest::Symlink& link = next.symlinks.at(l);
        const bool unchanged = current && !repairLinks.contains(link.path)
            && std::any_of(current->symlinks.cbegin(), current->symlinks.cend(),
                           [&](const Manifest::Symlink& o) { return o.path == link.path && o.target == link.target; });
        if (unchanged)
            continue;
        const QString name = QStringLiteral("l%1").arg(l);
        QFile::remove(m_directory.staging(name));
        if (!QFile::link(link.target, m_directory.staging(name)))
            return {ErrorCode::IoError, QStringLiteral("Cannot create the link %1.").arg(m_directory.staging(name))};
        journal->moves.append({name, link.path});
    }
    QSet<QString> nextDirectories(next.directories.cbegin(), next.directories.cend());
    for (const Manifest::File& file : next.files) {
        for (const QString& parent : parentsOf(file.path))
            nextDirectories.insert(parent);
    }
    for (const Manifest::Symlink& link : next.symlinks) {
        for (const QString& parent : parentsOf(link.path))
            nextDirectories.insert(parent);
    }
    journal->makeDirectories = QStringList(nextDirectories.cbegin(), nextDirectories.cend());
    journal->makeDirectories.sort();
    if (!current)
        return {};
    QSet<QString> nextLinks;
    for (const Manifest::Symlink& link : next.symlinks)
        nextLinks.insert(link.path);
    for (const Manifest::File& file : current->files) {
        if (!next.file(file.path))
            journal->deletes.append(file.path);
    }
    for (const Manifest::Symlink& link : current->symlinks) {
        if (!nextLinks.contains(link.path))
            journal->deletes.append(link.path);
    }
    for (const QString& directory : current->directories) {
        if (!nextDirectories.contains(directory))
            journal->removeDirectories.append(directory);
    }
    std::sort(journal->removeDirectories.rbegin(), journal->removeDirectories.rend());
    return {};
}

Failure Job::keepForRollback(const Manifest& current, const InstallState& state, const Journal& journal,
                             const QList<const Manifest::File*>& targets, bool* kept)
{
    *kept = false;
    QList<const Manifest::File*> replaced;
    qint64 bytes = 0;
    for (const Manifest::File* target : targets) {
        if (const Manifest::File* old = current.file(target->path))
            replaced.append(old), bytes += old->size;
    }
    for (const QString& path : journal.deletes) {
        if (const Manifest::File* old = current.file(path))
            replaced.append(old), bytes += old->size;
    }
    const QString store = m_directory.meta(QStringLiteral("rollback.new"));
    tvl::Filesystem::remove(store, tvl::Filesystem::Recursive | tvl::Filesystem::IgnoreMissing);
    if (bytes > m_options.rollbackLimit) {
        TVL_LOG(tvl::Logger::Notice) << "The replaced files take" << bytes << "bytes, more than the rollback limit: no rollback is kept";
        return {};
    }
    for (const Manifest::File* old : std::as_const(replaced)) {
        const QString copy = store + QStringLiteral("/files/") + old->path;
        QDir().mkpath(QFileInfo(copy).absolutePath());
        // A hard link keeps the old contents alive without copying them.
        if (::link(encoded(m_directory.path(old->path)).constData(), encoded(copy).constData()) != 0 && errno != ENOENT) {
            tvl::Filesystem::remove(store, tvl::Filesystem::Recursive | tvl::Filesystem::IgnoreMissing);
            return {};
        }
    }
    for (const auto& [name, content] : {std::pair{QStringLiteral("manifest.json"), current.toJson()},
                                        std::pair{QStringLiteral("state.json"), state.toJson()}}) {
        if (InstallDirectory::replaceFile(store + QLatin1Char('/') + name, content) != 0) {
            tvl::Filesystem::remove(store, tvl::Filesystem::Recursive | tvl::Filesystem::IgnoreMissing);
            return {};
        }
    }
    *kept = true;
    return {};
}

Failure Job::installOrUpdate()
{
    if (Failure failure = lockAndRecover())
        return failure;
    InstallState state;
    Manifest current;
    QString message;
    const bool installed = m_directory.isInstalled();
    if (installed) {
        ErrorCode code = m_directory.readState(&state, &message);
        if (code == ErrorCode::NoError)
            code = m_directory.readManifest(&current, &message);
        if (code != ErrorCode::NoError)
            return {code, message};
        if (state.project != m_options.project)
            return {ErrorCode::InvalidArguments,
                    QStringLiteral("%1 holds the project \"%2\", not \"%3\".").arg(m_directory.root(), state.project, m_options.project)};
    } else if (m_kind == Operation::Update) {
        return {ErrorCode::NotInstalled, QStringLiteral("Nothing is installed in %1: install first.").arg(m_directory.root())};
    }
    const QString channel = m_kind == Operation::Update ? state.channel : m_options.channel;
    m_result->channel = channel;
    m_result->previousVersion = state.version;

    m_context->setStage(Progress::Checking);
    ReleaseRecord record;
    if (Failure failure = fetchRecord(channel, installed ? &state : nullptr, &record))
        return failure;
    InstallState next = state;
    next.project = m_options.project;
    next.channel = channel;
    next.version = record.version;
    next.manifestSha256 = record.manifestSha256;
    next.serials.insert(channel, std::max(state.serials.value(channel), record.serial));
    next.pinned = false;
    if (installed && record.manifestSha256 == state.manifestSha256) {
        m_result->version = state.version;
        m_result->rollbackPossible = QFile::exists(m_directory.meta(QStringLiteral("rollback/manifest.json")));
        if (next.toJson() == state.toJson())
            return {};
        const ErrorCode code = m_directory.writeState(next, &message);
        return {code, message};
    }
    Manifest manifest;
    if (Failure failure = fetchManifest(record, &manifest))
        return failure;
    const QList<const Manifest::File*> targets = changedFiles(manifest, installed ? &current : nullptr);
    QList<SourceTree> sources;
    if (installed)
        sources.append({m_directory.root(), &current});
    if (Failure failure = stage(manifest, targets, sources))
        return failure;

    Journal journal;
    if (Failure failure = journalFor(manifest, installed ? &current : nullptr, targets, {}, &journal))
        return failure;
    bool kept = false;
    if (installed) {
        if (Failure failure = keepForRollback(current, state, journal, targets, &kept))
            return failure;
    }
    journal.swapRollback = kept;
    journal.dropRollback = !kept;
    if (Failure failure = writeStaged(QStringLiteral("manifest.json"), manifest.toJson()))
        return failure;
    if (Failure failure = writeStaged(QStringLiteral("state.json"), next.toJson()))
        return failure;
    if (cancelled())
        return cancelledFailure();
    m_context->setStage(Progress::Finishing);
    if (const ErrorCode code = m_directory.commit(journal, &message); code != ErrorCode::NoError)
        return {code, message};
    m_result->version = manifest.version;
    m_result->rollbackPossible = kept;
    for (const auto& [staged, path] : std::as_const(journal.moves))
        m_result->updatedFiles.append(path);
    m_result->updatedFiles.append(journal.deletes);
    return {};
}

Failure Job::repair()
{
    InstallState state;
    Manifest manifest;
    if (Failure failure = openInstalled(&state, &manifest))
        return failure;
    m_result->version = m_result->previousVersion = state.version;
    m_result->channel = state.channel;
    QStringList damaged;
    if (Failure failure = findDamage(manifest, &damaged))
        return failure;
    m_result->damagedFiles = damaged;
    if (damaged.isEmpty())
        return {};
    QList<const Manifest::File*> targets;
    for (const QString& path : std::as_const(damaged)) {
        if (const Manifest::File* file = manifest.file(path))
            targets.append(file);
    }
    if (Failure failure = stage(manifest, targets, {{m_directory.root(), &manifest}}))
        return failure;
    Journal journal;
    if (Failure failure = journalFor(manifest, &manifest, targets, damaged, &journal))
        return failure;
    m_context->setStage(Progress::Finishing);
    QString message;
    if (const ErrorCode code = m_directory.commit(journal, &message); code != ErrorCode::NoError)
        return {code, message};
    m_result->updatedFiles = damaged;
    return {};
}

Failure Job::rollback()
{
    if (Failure failure = lockAndRecover())
        return failure;
    InstallState state, previousState;
    Manifest current, previous;
    QString message;
    ErrorCode code = m_directory.readState(&state, &message);
    if (code == ErrorCode::NoError)
        code = m_directory.readManifest(&current, &message);
    if (code != ErrorCode::NoError)
        return {code, message};
    QFile previousStateFile(m_directory.meta(QStringLiteral("rollback/state.json")));
    QFile previousManifestFile(m_directory.meta(QStringLiteral("rollback/manifest.json")));
    QString reason;
    if (!previousStateFile.open(QIODevice::ReadOnly) || !previousManifestFile.open(QIODevice::ReadOnly)
        || !previousState.fromJson(previousStateFile.readAll()) || !previous.fromJson(previousManifestFile.readAll(), &reason))
        return {ErrorCode::NoRollback,
                QStringLiteral("No earlier version of %1 is kept: rollback is possible once after an update whose "
                               "replaced files fit the rollback limit.").arg(m_directory.root())};
    m_result->previousVersion = state.version;
    m_result->channel = state.channel;
    const QList<const Manifest::File*> targets = changedFiles(previous, &current);
    if (Failure failure = stage(previous, targets,
                                {{m_directory.meta(QStringLiteral("rollback/files")), &previous}, {m_directory.root(), &current}}))
        return failure;
    Journal journal;
    if (Failure failure = journalFor(previous, &current, targets, {}, &journal))
        return failure;
    journal.dropRollback = true;
    // The serials accepted since stay: a rollback never lowers what a record must reach.
    InstallState next = previousState;
    next.channel = state.channel;
    for (auto it = state.serials.cbegin(); it != state.serials.cend(); ++it)
        next.serials.insert(it.key(), std::max(it.value(), next.serials.value(it.key())));
    next.pinned = true;
    if (Failure failure = writeStaged(QStringLiteral("manifest.json"), previous.toJson()))
        return failure;
    if (Failure failure = writeStaged(QStringLiteral("state.json"), next.toJson()))
        return failure;
    m_context->setStage(Progress::Finishing);
    if (const ErrorCode commitCode = m_directory.commit(journal, &message); commitCode != ErrorCode::NoError)
        return {commitCode, message};
    m_result->version = previous.version;
    m_result->pinned = true;
    for (const auto& [staged, path] : std::as_const(journal.moves))
        m_result->updatedFiles.append(path);
    m_result->updatedFiles.append(journal.deletes);
    return {};
}

} // namespace tvl::vantor
