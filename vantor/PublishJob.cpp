#include "Job_p.h"

#include "Chunker_p.h"
#include "Crypto_p.h"
#include "Zstd_p.h"

#include <basix/Logger.h>

#include <QtCore/QDateTime>
#include <QtCore/QDir>
#include <QtCore/QDirIterator>
#include <QtCore/QFile>
#include <QtCore/QMutex>
#include <QtCore/QRegularExpression>
#include <QtCore/QSaveFile>

#include <cerrno>
#include <numeric>
#include <sys/stat.h>
#include <unistd.h>

namespace tvl::vantor {

namespace {

bool isPlainName(const QString& name)
{
    static const QRegularExpression pattern(QStringLiteral("^[A-Za-z0-9][A-Za-z0-9._-]*$"));
    return pattern.match(name).hasMatch();
}

} // namespace

Failure Job::publish()
{
    const Options& o = m_options;
    if (!isPlainName(o.project) || !isPlainName(o.channel))
        return {ErrorCode::InvalidArguments,
                QStringLiteral("Project and channel names are letters, digits, \".\", \"_\" and \"-\" (given: \"%1\", \"%2\").")
                    .arg(o.project, o.channel)};
    if (o.version.isEmpty() || o.repositoryDirectory.isEmpty() || !QFileInfo(o.sourceDirectory).isDir())
        return {ErrorCode::InvalidArguments, QStringLiteral("A source directory, a repository directory and a version are needed.")};
    if (o.secretKey.size() != ed25519::SecretKeyBytes)
        return {ErrorCode::InvalidArguments, QStringLiteral("No valid secret key was given: create one with \"vantor keygen\".")};

    const QString source = QDir(o.sourceDirectory).absolutePath();
    const QString repository = QDir(o.repositoryDirectory).absolutePath() + QLatin1Char('/') + o.project;
    Manifest manifest;
    manifest.project = o.project;
    manifest.version = o.version;
    const Chunker chunker;
    manifest.chunkMinimum = chunker.minimum();
    manifest.chunkAverage = chunker.average();
    manifest.chunkMaximum = chunker.maximum();

    QDirIterator it(source, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString relative = path.mid(source.size() + 1);
        if (relative == QLatin1String(".vantor") || relative.startsWith(QLatin1String(".vantor/")))
            continue; // the source is itself an install directory
        struct stat status;
        if (::lstat(QFile::encodeName(path).constData(), &status) != 0)
            continue;
        if (S_ISLNK(status.st_mode)) {
            char buffer[4096];
            const ssize_t length = ::readlink(QFile::encodeName(path).constData(), buffer, sizeof buffer);
            const QString raw = length > 0 ? QFile::decodeName(QByteArray(buffer, int(length))) : QString();
            if (!isSafeSymlink(relative, raw))
                return {ErrorCode::PathEscape,
                        QStringLiteral("The link %1 -> %2 leads out of the published directory: replace it by what it points "
                                       "to, or remove it.").arg(relative, raw)};
            manifest.symlinks.append({relative, raw});
        } else if (S_ISDIR(status.st_mode)) {
            manifest.directories.append(relative);
        } else if (S_ISREG(status.st_mode)) {
            manifest.files.append({relative, qint64(status.st_size), bool(status.st_mode & S_IXUSR), {}, {}});
        } else {
            TVL_LOG(tvl::Logger::Warning) << "Not published, neither file, directory nor link:" << path;
        }
    }
    std::sort(manifest.files.begin(), manifest.files.end(), [](const auto& a, const auto& b) { return a.path < b.path; });
    std::sort(manifest.symlinks.begin(), manifest.symlinks.end(), [](const auto& a, const auto& b) { return a.path < b.path; });
    manifest.directories.sort();

    // The largest files first, so that the last to finish is a small one.
    QList<int> order(manifest.files.size());
    std::iota(order.begin(), order.end(), 0);
    std::sort(order.begin(), order.end(), [&](int a, int b) { return manifest.files.at(a).size > manifest.files.at(b).size; });

    m_context->setStage(Progress::Publishing, manifest.totalSize(), int(manifest.files.size()));
    QMutex mutex;
    QString failure;
    std::atomic<qint64> newChunks{0}, newBytes{0};
    parallelFor(int(order.size()), [&](int i) {
        Manifest::File& file = manifest.files[order.at(i)];
        QFile input(source + QLatin1Char('/') + file.path);
        if (!input.open(QIODevice::ReadOnly)) {
            QMutexLocker locker(&mutex);
            failure = QStringLiteral("Cannot read %1: %2").arg(input.fileName(), input.errorString());
            return;
        }
        const uchar* data = file.size > 0 ? input.map(0, file.size) : nullptr;
        if (file.size > 0 && !data) {
            QMutexLocker locker(&mutex);
            failure = QStringLiteral("Cannot read %1: %2").arg(input.fileName(), input.errorString());
            return;
        }
        Sha256 fileHash, chunkHash;
        for (qint64 offset = 0; offset < file.size && !cancelled();) {
            const qint64 length = chunker.cut(data + offset, std::min(file.size - offset, chunker.maximum()));
            const QByteArrayView bytes(reinterpret_cast<const char*>(data + offset), length);
            fileHash.add(bytes);
            chunkHash.add(bytes);
            const QByteArray sha256 = chunkHash.hexDigest();
            file.chunks.append(sha256);
            offset += length;
            m_context->bytesDone += length;
            {
                QMutexLocker locker(&mutex);
                if (manifest.chunks.contains(sha256))
                    continue;
                manifest.chunks.insert(sha256, {length, 0});
            }
            const QString name = repository + QStringLiteral("/chunks/%1/%2.zst").arg(QString::fromLatin1(sha256.left(2)), QString::fromLatin1(sha256));
            qint64 stored = QFileInfo(name).size();
            if (stored <= 0) {
                const QByteArray compressed = zstd::compress(bytes, o.compressionLevel);
                QDir().mkpath(QFileInfo(name).absolutePath());
                const int error = compressed.isEmpty() ? EIO : InstallDirectory::replaceFile(name, compressed);
                if (error) {
                    QMutexLocker locker(&mutex);
                    failure = QStringLiteral("Cannot write %1: %2").arg(name, qt_error_string(error));
                    return;
                }
                stored = compressed.size();
                ++newChunks;
                newBytes += stored;
            }
            QMutexLocker locker(&mutex);
            manifest.chunks[sha256].storedSize = stored;
        }
        file.sha256 = fileHash.hexDigest();
        ++m_context->filesDone;
    });
    if (cancelled())
        return cancelledFailure();
    if (!failure.isEmpty())
        return {ErrorCode::IoError, failure};
    if (const QString invalid = manifest.validate(); !invalid.isEmpty())
        return {ErrorCode::PathEscape, QStringLiteral("Cannot publish %1: %2.").arg(source, invalid)};

    m_context->setStage(Progress::Finishing);
    const QByteArray stored = zstd::compress(manifest.toJson(), 6);
    ReleaseRecord record;
    record.project = o.project;
    record.channel = o.channel;
    record.version = o.version;
    record.manifestSha256 = Sha256::hex(stored);
    record.manifestSize = stored.size();
    const QString manifestName = repository + QStringLiteral("/manifests/%1.zst").arg(QString::fromLatin1(record.manifestSha256));
    QDir().mkpath(repository + QStringLiteral("/manifests"));
    QSaveFile manifestFile(manifestName);
    if (!manifestFile.open(QIODevice::WriteOnly) || manifestFile.write(stored) < 0 || !manifestFile.commit())
        return {ErrorCode::IoError, QStringLiteral("Cannot write %1: %2").arg(manifestName, manifestFile.errorString())};

    const QString recordName = repository + QStringLiteral("/channels/%1.json").arg(o.channel);
    QFile previousFile(recordName);
    ReleaseRecord previous;
    const bool hasPrevious = previousFile.open(QIODevice::ReadOnly) && previous.parseUnverified(previousFile.readAll());
    record.serial = hasPrevious ? previous.serial + 1 : 1;
    record.published = QDateTime::currentDateTimeUtc();
    record.expires = record.published.addSecs(o.validForSeconds);
    QDir().mkpath(repository + QStringLiteral("/channels"));
    QSaveFile recordFile(recordName);
    if (!recordFile.open(QIODevice::WriteOnly) || recordFile.write(record.sign(o.secretKey)) < 0 || !recordFile.commit())
        return {ErrorCode::IoError, QStringLiteral("Cannot write %1: %2").arg(recordName, recordFile.errorString())};

    m_result->version = o.version;
    m_result->previousVersion = hasPrevious ? previous.version : QString();
    m_result->serial = record.serial;
    TVL_LOG(tvl::Logger::Notice) << "Published" << o.project << o.version << "on" << o.channel << "serial" << record.serial << ":"
                                 << manifest.files.size() << "files," << manifest.chunks.size() << "chunks," << newChunks.load()
                                 << "new," << newBytes.load() << "bytes written";
    return {};
}

} // namespace tvl::vantor
