#pragma once

// What the update engine's tests share: small generated game trees in two versions, a signing
// key, a repository published into a temporary directory, a way to run one operation to its
// end, and a digest of a tree to compare an install with what was published.

#include <NginxServer.h>
#include <TestSupport.h>

#include <vantor/Crypto_p.h>
#include <vantor/Keys.h>
#include <vantor/Manifest_p.h>
#include <vantor/Operation.h>

#include <QtCore/QCryptographicHash>
#include <QtCore/QDirIterator>
#include <QtCore/QMap>
#include <QtCore/QTemporaryDir>
#include <QtTest/QSignalSpy>
#include <QtTest/QTest>

#include <random>
#include <sys/stat.h>
#include <unistd.h>

namespace vantortest {

using tvl::vantor::ErrorCode;
using tvl::vantor::Operation;
using tvl::vantor::Options;

inline QByteArray randomBytes(qsizetype size, quint32 seed)
{
    std::mt19937 generator(seed);
    QByteArray bytes(size, Qt::Uninitialized);
    for (char& byte : bytes)
        byte = char(generator());
    return bytes;
}

inline QByteArray textBytes(int lines, int seed)
{
    QByteArray text;
    for (int i = 0; i < lines; ++i)
        text += "line " + QByteArray::number(i) + " of asset " + QByteArray::number(seed) + ": some repeated text\n";
    return text;
}

/**
 * A game of about 1.2 MiB: an executable, an incompressible blob, a compressible text, small
 * files and a link. Version 2 inserts bytes into the blob, edits the text, drops a small file,
 * adds one, makes a file executable and repoints the link.
 */
inline void writeGame(const QString& root, int version)
{
    using testsupport::writeFile;
    QDir(root).removeRecursively();
    writeFile(root + "/bin/game", "#!/bin/sh\necho version " + QByteArray::number(version) + "\n");
    QFile::setPermissions(root + "/bin/game", QFile::permissions(root + "/bin/game") | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther);
    QByteArray blob = randomBytes(640 * 1024, 11);
    QByteArray text = textBytes(8000, 1);
    if (version >= 2) {
        blob.insert(300 * 1024, randomBytes(3000, 12));
        text.replace(200'000, 40, "an edited line of version 2\n");
    }
    writeFile(root + "/data/blob.pak", blob);
    writeFile(root + "/data/text.txt", text);
    for (int i = 0; i < 12; ++i) {
        if (version >= 2 && i == 3)
            continue;
        writeFile(root + QStringLiteral("/data/small/%1.cfg").arg(i), textBytes(20 + i * 7, i));
    }
    if (version >= 2) {
        writeFile(root + "/data/new/added.dat", randomBytes(50'000, 13));
        const QString tool = root + "/data/small/5.cfg";
        QFile::setPermissions(tool, QFile::permissions(tool) | QFile::ExeOwner);
    }
    QDir().mkpath(root + "/empty");
    QFile::link(version >= 2 ? "../data/text.txt" : "game", root + "/bin/current");
}

/// Every entry below `root` but the engine's own records: path -> kind and content digest.
inline QMap<QString, QByteArray> treeDigest(const QString& root)
{
    QMap<QString, QByteArray> digest;
    QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString relative = path.mid(root.size() + 1);
        if (relative == ".vantor" || relative.startsWith(".vantor/"))
            continue;
        const QFileInfo info(path);
        if (info.isSymLink()) {
            char target[4096];
            const ssize_t length = ::readlink(QFile::encodeName(path).constData(), target, sizeof target);
            digest.insert(relative, "link " + QByteArray(target, int(std::max<ssize_t>(0, length))));
        }
        else if (info.isDir())
            digest.insert(relative, "dir");
        else
            digest.insert(relative, (info.isExecutable() ? "exec " : "file ")
                                        + QCryptographicHash::hash(testsupport::readFile(path), QCryptographicHash::Sha256).toHex());
    }
    return digest;
}

/// Runs one operation to its end on this thread's event loop.
inline tvl::vantor::UpdateResultPtr runOperation(Operation::Kind kind, const Options& options, int timeoutMs = 60'000)
{
    Operation operation(kind, options);
    QSignalSpy finished(&operation, &Operation::finished);
    operation.start();
    if (!finished.wait(timeoutMs)) {
        operation.cancel();
        finished.wait(timeoutMs);
    }
    return operation.result();
}

inline QByteArray describe(const tvl::vantor::UpdateResultPtr& result)
{
    return result ? QStringLiteral("error %1: %2").arg(int(result->error)).arg(result->errorString).toUtf8() : QByteArray("no result");
}

/// A repository in a temporary directory with a key to sign it, and the trees it publishes.
struct Repository
{
    Repository()
    {
        tvl::vantor::Keys::generate(&publicKey, &secretKey);
        QDir().mkpath(path());
    }

    QString path() const { return dir.path() + "/repo"; }
    QString source(int version) const { return dir.path() + QStringLiteral("/v%1").arg(version); }
    QString keyFile() const
    {
        const QString file = dir.path() + "/key";
        if (!QFile::exists(file))
            tvl::vantor::Keys::writeSecretKey(file, secretKey);
        return file;
    }
    QString publicKeyText() const { return tvl::vantor::Keys::encodePublicKey(publicKey); }

    /// Publishes the generated game of `version` on `channel`.
    tvl::vantor::UpdateResultPtr publish(int version, const QString& channel = "stable", qint64 validFor = 3600)
    {
        if (!QFile::exists(source(version)))
            writeGame(source(version), version);
        Options options;
        options.project = "demo";
        options.channel = channel;
        options.version = QString::number(version) + ".0";
        options.sourceDirectory = source(version);
        options.repositoryDirectory = path();
        options.secretKey = secretKey;
        options.validForSeconds = validFor;
        return runOperation(Operation::Publish, options);
    }

    /// Options to install from `url` into `installDirectory`.
    Options client(const QUrl& url, const QString& installDirectory) const
    {
        Options options;
        options.repository = url;
        options.project = "demo";
        options.trustedKeys = {publicKey};
        options.installDirectory = installDirectory;
        options.timeoutMs = 5000;
        return options;
    }

    /// The compressed size of the chunks that version `to` has and version `from` lacks.
    qint64 chunkBytesBetween(const QStringList& fromChunks, const QStringList& toChunks) const
    {
        qint64 bytes = 0;
        for (const QString& chunk : toChunks) {
            if (!fromChunks.contains(chunk))
                bytes += QFileInfo(path() + "/demo/chunks/" + chunk.left(2) + "/" + chunk + ".zst").size();
        }
        return bytes;
    }

    /// The chunk files of the repository, by name.
    QStringList chunkNames() const
    {
        QStringList names;
        QDirIterator it(path() + "/demo/chunks", {"*.zst"}, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext())
            names.append(QFileInfo(it.next()).completeBaseName());
        return names;
    }

    QTemporaryDir dir;
    QByteArray publicKey, secretKey;
};

/// The chunks that an interrupted run kept in the install directory, by name.
inline QSet<QString> keptChunks(const QString& installDirectory)
{
    QSet<QString> names;
    for (const QByteArray& line : testsupport::readFile(installDirectory + "/.vantor/staging/landed").split('\n')) {
        if (!line.isEmpty())
            names.insert(QString::fromLatin1(line));
    }
    return names;
}

/// The stored size of the chunks of the manifest installed in `installDirectory`, less `except`.
inline qint64 storedBytes(const QString& installDirectory, const QSet<QString>& except = {})
{
    tvl::vantor::Manifest manifest;
    QString error;
    manifest.fromJson(testsupport::readFile(installDirectory + "/.vantor/manifest.json"), &error);
    qint64 bytes = 0;
    for (auto it = manifest.chunks.cbegin(); it != manifest.chunks.cend(); ++it) {
        if (!except.contains(QString::fromLatin1(it.key())))
            bytes += it->storedSize;
    }
    return bytes;
}

} // namespace vantortest
