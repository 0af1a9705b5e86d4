// The update engine against a real nginx: install, delta update, rollback, verify and repair;
// every way a repository can lie; broken transfers; pause and resume; two processes on one
// directory; a full disk.
#include "VantorFixture.h"

#include <FaultProxy.h>

#include <vantor/Manifest_p.h>
#include <vantor/ReleaseRecord_p.h>
#include <vantor/Zstd_p.h>

#include <QtTest/QtTest>

using namespace vantortest;
using testsupport::FaultProxy;
using testsupport::NginxServer;

namespace {

/// A repository with versions 1 and 2 published, served by nginx.
struct Served
{
    Served()
        : server(repository.path())
    {
    }
    bool start()
    {
        QString error;
        if (!repository.publish(1)->success)
            return false;
        v1Chunks = repository.chunkNames();
        record1 = testsupport::readFile(recordPath());
        if (!repository.publish(2)->success)
            return false;
        v2Chunks = repository.chunkNames();
        if (!server.start(&error))
            qWarning("%s", qPrintable(error));
        return server.isRunning();
    }
    QString recordPath(const QString& channel = "stable") const { return repository.path() + "/demo/channels/" + channel + ".json"; }
    Options client(const QString& dir) const { return repository.client(server.url(), dir); }

    Repository repository;
    NginxServer server;
    QStringList v1Chunks, v2Chunks;
    QByteArray record1;
};

tvl::vantor::Manifest installedManifest(const QString& dir)
{
    tvl::vantor::Manifest manifest;
    QString error;
    manifest.fromJson(testsupport::readFile(dir + "/.vantor/manifest.json"), &error);
    return manifest;
}

/// Publishes `manifest` as the channel's next release, however wrong it is.
void publishCrafted(const Served& served, const tvl::vantor::Manifest& manifest, qint64 serial)
{
    const QByteArray stored = tvl::vantor::zstd::compress(manifest.toJson());
    tvl::vantor::ReleaseRecord record;
    record.project = "demo";
    record.channel = "stable";
    record.version = manifest.version;
    record.manifestSha256 = tvl::vantor::Sha256::hex(stored);
    record.manifestSize = stored.size();
    record.serial = serial;
    record.published = QDateTime::currentDateTimeUtc();
    record.expires = record.published.addSecs(3600);
    testsupport::writeFile(served.repository.path() + "/demo/manifests/" + record.manifestSha256 + ".zst", stored);
    testsupport::writeFile(served.recordPath(), record.sign(served.repository.secretKey));
}

} // namespace

class TestVantorClient : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY2(!QStandardPaths::findExecutable("nginx", {"/usr/sbin", "/usr/bin"}).isEmpty() || QFile::exists("/usr/sbin/nginx"),
                 "nginx is missing: run scripts/install-deps");
    }

    void installUpdateRollback()
    {
        Served served;
        QVERIFY(served.start());
        QTemporaryDir home;
        const QString dir = home.path() + "/game";
        // Version 1 through the channel's previous record: all of its chunks, each once.
        testsupport::writeFile(served.recordPath() + ".v2", testsupport::readFile(served.recordPath()));
        testsupport::writeFile(served.recordPath(), served.record1);
        auto result = runOperation(Operation::Install, served.client(dir));
        QVERIFY2(result->success, describe(result).constData());
        QCOMPARE(result->version, QString("1.0"));
        QCOMPARE(treeDigest(dir), treeDigest(served.repository.source(1)));
        QCOMPARE(served.server.bytesSent("/chunks/"), served.repository.chunkBytesBetween({}, served.v1Chunks));

        testsupport::writeFile(served.recordPath(), testsupport::readFile(served.recordPath() + ".v2"));
        result = runOperation(Operation::Check, served.client(dir));
        QVERIFY2(result->success && result->updateAvailable, describe(result).constData());
        QCOMPARE(result->version, QString("2.0"));
        QCOMPARE(result->previousVersion, QString("1.0"));

        // The delta: exactly the chunks version 1 lacks, nothing re-read from the server.
        served.server.clearLog();
        result = runOperation(Operation::Update, served.client(dir));
        QVERIFY2(result->success, describe(result).constData());
        QCOMPARE(treeDigest(dir), treeDigest(served.repository.source(2)));
        const qint64 delta = served.repository.chunkBytesBetween(served.v1Chunks, served.v2Chunks);
        QCOMPARE(served.server.bytesSent("/chunks/"), delta);
        QVERIFY(delta > 0 && delta < served.repository.chunkBytesBetween({}, served.v2Chunks) / 2); // the chunks around the edits
        QCOMPARE(QSet<QString>(result->updatedFiles.cbegin(), result->updatedFiles.cend()),
                 QSet<QString>({"bin/game", "data/blob.pak", "data/text.txt", "data/new/added.dat", "data/small/5.cfg",
                                "bin/current", "data/small/3.cfg"}));

        result = runOperation(Operation::Status, served.client(dir));
        QVERIFY(result->success && result->rollbackPossible && result->serial == 2 && !result->pinned);

        // Rollback needs no server: the replaced files were kept.
        served.server.stop();
        result = runOperation(Operation::Rollback, served.client(dir));
        QVERIFY2(result->success, describe(result).constData());
        QCOMPARE(result->version, QString("1.0"));
        QCOMPARE(treeDigest(dir), treeDigest(served.repository.source(1)));
        result = runOperation(Operation::Status, served.client(dir));
        QVERIFY(result->success && result->pinned && !result->rollbackPossible && result->serial == 2);
        result = runOperation(Operation::Rollback, served.client(dir));
        QCOMPARE(result->error, ErrorCode::NoRollback);

        // Pinned, but an explicit update leaves the old version; the serial check still holds.
        QVERIFY(served.server.start());
        result = runOperation(Operation::Check, served.client(dir));
        QVERIFY(result->success && result->updateAvailable && result->pinned);
        result = runOperation(Operation::Update, served.client(dir));
        QVERIFY2(result->success, describe(result).constData());
        QCOMPARE(treeDigest(dir), treeDigest(served.repository.source(2)));

        result = runOperation(Operation::Uninstall, served.client(dir));
        QVERIFY2(result->success, describe(result).constData());
        QCOMPARE(treeDigest(dir), (QMap<QString, QByteArray>()));
        QVERIFY(!QFile::exists(dir + "/.vantor"));
    }

    void channelsAreFollowed()
    {
        Served served;
        QVERIFY(served.start());
        QVERIFY(served.repository.publish(1, "beta")->success);
        QTemporaryDir home;
        const QString dir = home.path() + "/game";
        QVERIFY(runOperation(Operation::Install, served.client(dir))->success);
        // Another channel has serials of its own: its serial 1 is no rollback of stable's 2.
        Options options = served.client(dir);
        options.channel = "beta";
        QVERIFY(runOperation(Operation::SetChannel, options)->success);
        auto result = runOperation(Operation::Update, served.client(dir));
        QVERIFY2(result->success, describe(result).constData());
        QCOMPARE(result->channel, QString("beta"));
        QCOMPARE(treeDigest(dir), treeDigest(served.repository.source(1)));
        result = runOperation(Operation::Status, served.client(dir));
        QVERIFY(result->channel == "beta" && result->version == "1.0" && result->serial == 1);
    }

    void damageIsFoundAndRepaired()
    {
        Served served;
        QVERIFY(served.start());
        QTemporaryDir home;
        const QString dir = home.path() + "/game";
        QVERIFY(runOperation(Operation::Install, served.client(dir))->success);
        const tvl::vantor::Manifest manifest = installedManifest(dir);

        // One byte in the pack, a truncated text, a lost small file, a changed link.
        QFile blob(dir + "/data/blob.pak");
        QVERIFY(blob.open(QIODevice::ReadWrite) && blob.seek(400'000));
        const char byte = blob.peek(1).at(0);
        blob.write(QByteArray(1, char(~byte)));
        blob.close();
        QFile text(dir + "/data/text.txt");
        QVERIFY(text.resize(100'000));
        QVERIFY(QFile::remove(dir + "/data/small/7.cfg"));
        QVERIFY(QFile::remove(dir + "/bin/current") && QFile::link("/etc/passwd", dir + "/bin/current"));

        auto result = runOperation(Operation::Verify, served.client(dir));
        QCOMPARE(result->error, ErrorCode::Damaged);
        QCOMPARE(QSet<QString>(result->damagedFiles.cbegin(), result->damagedFiles.cend()),
                 QSet<QString>({"data/blob.pak", "data/text.txt", "data/small/7.cfg", "bin/current"}));

        // Only the chunks that no file still holds are fetched: one of the pack, the text's
        // after its cut, the lost file's.
        QSet<QString> expected;
        for (const QString& path : {QString("data/blob.pak"), QString("data/text.txt"), QString("data/small/7.cfg")}) {
            const tvl::vantor::Manifest::File* file = manifest.file(path);
            const QByteArray content = testsupport::readFile(dir + "/" + path);
            qint64 offset = 0;
            for (const QByteArray& chunk : file->chunks) {
                const qint64 size = manifest.chunks.value(chunk).size;
                if (offset + size > content.size() || tvl::vantor::Sha256::hex(content.mid(offset, size)) != chunk)
                    expected.insert(QString::fromLatin1(chunk));
                offset += size;
            }
        }
        QVERIFY(expected.size() >= 3);
        served.server.clearLog();
        result = runOperation(Operation::Repair, served.client(dir));
        QVERIFY2(result->success, describe(result).constData());
        QSet<QString> fetched;
        for (const auto& request : served.server.requests())
            fetched.insert(QFileInfo(request.uri).completeBaseName());
        QCOMPARE(fetched, expected);
        QCOMPARE(treeDigest(dir), treeDigest(served.repository.source(2)));
        QVERIFY(runOperation(Operation::Verify, served.client(dir))->success);
    }

    void lyingRepositoryChangesNothing_data()
    {
        QTest::addColumn<QString>("lie");
        QTest::addColumn<ErrorCode>("error");
        QTest::newRow("tampered chunk") << "chunk" << ErrorCode::HashMismatch;
        QTest::newRow("chunk far larger than signed") << "endless chunk" << ErrorCode::HashMismatch;
        QTest::newRow("tampered manifest") << "manifest" << ErrorCode::HashMismatch;
        QTest::newRow("tampered record") << "record" << ErrorCode::BadSignature;
        QTest::newRow("signed by an unknown key") << "key" << ErrorCode::UnknownKey;
        QTest::newRow("an older record again (rollback attack)") << "replay" << ErrorCode::RollbackAttack;
        QTest::newRow("expired record (freeze attack)") << "expired" << ErrorCode::ExpiredRecord;
        QTest::newRow("absolute path") << "/tmp/vantor-escape" << ErrorCode::PathEscape;
        QTest::newRow("path with ..") << "../escape" << ErrorCode::PathEscape;
        QTest::newRow("file through a link") << "bin/current/escape" << ErrorCode::PathEscape;
        QTest::newRow("link out of the tree") << "link:../../.." << ErrorCode::PathEscape;
        QTest::newRow("into the engine's records") << ".vantor/state.json" << ErrorCode::PathEscape;
    }

    void lyingRepositoryChangesNothing()
    {
        QFETCH(QString, lie);
        QFETCH(ErrorCode, error);
        Served served;
        QVERIFY(served.start());
        QTemporaryDir home;
        const QString dir = home.path() + "/game";
        // Version 1 installed, from serial 2's record for the replay (it re-signs version 1).
        const QByteArray record2 = testsupport::readFile(served.recordPath());
        testsupport::writeFile(served.recordPath(), served.record1);
        QVERIFY(runOperation(Operation::Install, served.client(dir))->success);
        Options options = served.client(dir);
        const tvl::vantor::Manifest v1 = installedManifest(dir);
        testsupport::writeFile(served.recordPath(), record2);
        tvl::vantor::ReleaseRecord record;
        record.parseUnverified(record2);
        const QString manifestFile = served.repository.path() + "/demo/manifests/" + record.manifestSha256 + ".zst";

        if (lie.endsWith("chunk")) {
            const QStringList fresh = QSet<QString>(served.v2Chunks.cbegin(), served.v2Chunks.cend())
                                          .subtract(QSet<QString>(served.v1Chunks.cbegin(), served.v1Chunks.cend()))
                                          .values();
            const QString chunk = served.repository.path() + "/demo/chunks/" + fresh.first().left(2) + "/" + fresh.first() + ".zst";
            QByteArray stored = testsupport::readFile(chunk);
            if (lie == "endless chunk") {
                // 64 MiB where a few kilobytes were signed: refused once the answer outgrows them.
                testsupport::writeFile(chunk, stored + QByteArray(64 << 20, 'x'));
            } else {
                // A valid zstd frame of the right size, with other contents.
                const QByteArray other = tvl::vantor::zstd::compress(randomBytes(tvl::vantor::zstd::decompress(stored, 1 << 20).size(), 99));
                testsupport::writeFile(chunk, other.left(stored.size()).leftJustified(stored.size(), '\0'));
            }
        } else if (lie == "manifest") {
            QByteArray stored = testsupport::readFile(manifestFile);
            stored[stored.size() / 2] = char(~stored.at(stored.size() / 2));
            testsupport::writeFile(manifestFile, stored);
        } else if (lie == "record") {
            const QByteArray file = testsupport::readFile(served.recordPath());
            QJsonObject object = QJsonDocument::fromJson(file).object();
            QByteArray payload = QByteArray::fromBase64(object.value("signed").toString().toLatin1());
            payload.replace("\"version\":\"2.0\"", "\"version\":\"9.0\"");
            object.insert("signed", QString::fromLatin1(payload.toBase64()));
            testsupport::writeFile(served.recordPath(), QJsonDocument(object).toJson());
        } else if (lie == "key") {
            QByteArray otherPublic, otherSecret;
            tvl::vantor::Keys::generate(&otherPublic, &otherSecret);
            options.trustedKeys = {otherPublic};
        } else if (lie == "replay") {
            QVERIFY(runOperation(Operation::Update, options)->success); // serial 2 accepted
            testsupport::writeFile(served.recordPath(), served.record1);
        } else if (lie == "expired") {
            QVERIFY(served.repository.publish(2, "stable", -60)->success);
        } else {
            tvl::vantor::Manifest crafted = v1;
            crafted.version = "6.6.6";
            const tvl::vantor::Manifest::File& game = *v1.file("bin/game");
            if (lie.startsWith("link:"))
                crafted.symlinks.append(tvl::vantor::Manifest::Symlink{"data/escape", lie.mid(5)});
            else
                crafted.files.append(tvl::vantor::Manifest::File{lie, game.size, false, game.sha256, game.chunks});
            std::sort(crafted.files.begin(), crafted.files.end(), [](const auto& a, const auto& b) { return a.path < b.path; });
            publishCrafted(served, crafted, 3);
        }
        const QMap<QString, QByteArray> before = treeDigest(dir);
        const QByteArray stateBefore = testsupport::readFile(dir + "/.vantor/state.json");
        served.server.clearLog();
        const auto result = runOperation(Operation::Update, options);
        QCOMPARE(result->error, error);
        if (lie == "endless chunk") // not taken in whole before it is judged
            QVERIFY2(served.server.bytesSent("/chunks/") < (16 << 20), qPrintable(QString::number(served.server.bytesSent("/chunks/"))));
        QVERIFY2(result->errorString.size() > 40, qPrintable(result->errorString)); // says what happened and what to do
        QCOMPARE(treeDigest(dir), before);
        QCOMPARE(testsupport::readFile(dir + "/.vantor/state.json"), stateBefore);
        QVERIFY(!QFile::exists("/tmp/vantor-escape"));
        QVERIFY(!QFile::exists(home.path() + "/escape"));
    }

    void brokenTransfersAreRetried_data()
    {
        QTest::addColumn<FaultProxy::Kind>("kind");
        QTest::addColumn<QString>("uri");
        QTest::addColumn<int>("times");
        QTest::addColumn<qint64>("bytes");
        QTest::addColumn<ErrorCode>("error");
        QTest::newRow("503 with Retry-After on chunks") << FaultProxy::Unavailable << "/chunks/" << 3 << qint64(1) << ErrorCode::NoError;
        QTest::newRow("503 on the record") << FaultProxy::Unavailable << "/channels/" << 2 << qint64(0) << ErrorCode::NoError;
        QTest::newRow("cut mid-chunk") << FaultProxy::CutAfter << "/chunks/" << 4 << qint64(20) << ErrorCode::NoError;
        QTest::newRow("cut the manifest") << FaultProxy::CutAfter << "/manifests/" << 1 << qint64(100) << ErrorCode::NoError;
        QTest::newRow("stalled chunk") << FaultProxy::Stall << "/chunks/" << 1 << qint64(20) << ErrorCode::NoError;
        QTest::newRow("a byte flipped once") << FaultProxy::FlipByte << "/chunks/" << 1 << qint64(10) << ErrorCode::NoError;
        QTest::newRow("a byte flipped every time") << FaultProxy::FlipByte << "/chunks/" << 1000 << qint64(10) << ErrorCode::HashMismatch;
        QTest::newRow("503 that never ends") << FaultProxy::Unavailable << "/channels/" << 1000 << qint64(0) << ErrorCode::ServerError;
    }

    void brokenTransfersAreRetried()
    {
        QFETCH(FaultProxy::Kind, kind);
        QFETCH(QString, uri);
        QFETCH(int, times);
        QFETCH(qint64, bytes);
        QFETCH(ErrorCode, error);
        Served served;
        QVERIFY(served.start());
        FaultProxy proxy(served.server.url());
        proxy.addFault(kind, uri, times, bytes);
        QTemporaryDir home;
        const QString dir = home.path() + "/game";
        Options options = served.repository.client(proxy.url(), dir);
        options.timeoutMs = 1000;
        options.retries = 3;
        const auto result = runOperation(Operation::Install, options);
        QCOMPARE(result->error, error);
        QVERIFY(proxy.faultsApplied() >= 1);
        if (error == ErrorCode::NoError) {
            QCOMPARE(treeDigest(dir), treeDigest(served.repository.source(2)));
            // A cut transfer goes on from where it broke.
            if (kind == FaultProxy::CutAfter && uri == "/chunks/") {
                int resumed = 0;
                for (const auto& request : served.server.requests())
                    resumed += request.status == 206 && request.range == "bytes=20-" ? 1 : 0;
                QCOMPARE(resumed, times);
            }
        } else {
            QCOMPARE(treeDigest(dir), (QMap<QString, QByteArray>()));
        }
    }

    void cancelKeepsWhatWasFetched()
    {
        Served served;
        QVERIFY(served.start());
        QTemporaryDir home;
        const QString dir = home.path() + "/game";
        Options options = served.client(dir);
        options.rateLimit = 300'000;
        options.connections = 2;
        {
            Operation operation(Operation::Install, options);
            QSignalSpy finished(&operation, &Operation::finished);
            QList<tvl::vantor::Progress> reports;
            QElapsedTimer clock;
            connect(&operation, &Operation::progress, &operation, [&](const tvl::vantor::Progress& progress) {
                reports.append(progress);
                if (progress.stage == tvl::vantor::Progress::Downloading && progress.bytesDone > 350'000)
                    operation.cancel();
            });
            clock.start();
            operation.start();
            QVERIFY(finished.wait(30'000));
            QCOMPARE(operation.result()->error, ErrorCode::Cancelled);
            // At least four reports a second while it ran, with a rate and the time left.
            QVERIFY2(reports.size() >= clock.elapsed() * 4 / 1000 - 1, qPrintable(QString::number(reports.size())));
            QVERIFY(std::any_of(reports.cbegin(), reports.cend(), [](const auto& p) { return p.bytesPerSecond > 0 && p.secondsLeft > 0; }));
        }
        QVERIFY(!QFile::exists(dir + "/data/blob.pak"));
        const QSet<QString> kept = keptChunks(dir);
        QVERIFY2(kept.size() >= 3, qPrintable(QString::number(kept.size())));
        // What the transfers under way at the pause had received is kept as well.
        qint64 partial = 0;
        for (const QFileInfo& file : QDir(dir + "/.vantor/partial").entryInfoList(QDir::Files))
            partial += file.size();

        served.server.clearLog();
        options.rateLimit = 0;
        const auto result = runOperation(Operation::Install, options);
        QVERIFY2(result->success, describe(result).constData());
        QCOMPARE(treeDigest(dir), treeDigest(served.repository.source(2)));
        for (const auto& request : served.server.requests())
            QVERIFY2(!kept.contains(QFileInfo(request.uri).completeBaseName()), qPrintable(request.uri));
        // Not a byte twice: the transfers under way at the pause go on from where they stopped.
        QCOMPARE(served.server.bytesSent("/chunks/"), storedBytes(dir, kept) - partial);
        QVERIFY(!QFile::exists(dir + "/.vantor/staging") && !QFile::exists(dir + "/.vantor/partial"));
    }

    void http2WithoutTls()
    {
        Served served;
        served.server.enableHttp2Cleartext();
        QVERIFY(served.start());
        QTemporaryDir home;
        const QString dir = home.path() + "/game";
        Options options = served.repository.client(served.server.http2Url(), dir);
        options.http2PriorKnowledge = true;
        const auto result = runOperation(Operation::Install, options);
        QVERIFY2(result->success, describe(result).constData());
        QCOMPARE(treeDigest(dir), treeDigest(served.repository.source(2)));
        const auto requests = served.server.requests();
        QVERIFY(requests.size() > 3);
        for (const auto& request : requests)
            QCOMPARE(request.protocol, QByteArray("HTTP/2.0"));

        // Asked of a server that speaks only HTTP/1.1: an error that says what may be wrong.
        QTemporaryDir other;
        options = served.repository.client(served.server.url(), other.path() + "/game");
        options.http2PriorKnowledge = true;
        options.timeoutMs = 1000;
        options.retries = 1;
        const auto refused = runOperation(Operation::Install, options);
        QCOMPARE(refused->error, ErrorCode::NetworkError);
        QVERIFY2(refused->errorString.contains("HTTP/2 without TLS was asked for"), qPrintable(refused->errorString));
    }

    void twoProcessesOnOneDirectory()
    {
        Served served;
        QVERIFY(served.start());
        QTemporaryDir home;
        const QString dir = home.path() + "/game";
        const QStringList arguments{"--dir", dir, "--repository", served.server.url().toString(), "--project", "demo",
                                    "--public-key", served.repository.publicKeyText()};
        QProcess slow, quick;
        slow.start(VANTOR_TOOL, QStringList{"install", "--rate-limit", "400000"} + arguments);
        QVERIFY(slow.waitForStarted());
        for (QDeadlineTimer deadline(20'000); !QFile::exists(dir + "/.vantor/staging") && !deadline.hasExpired();)
            QTest::qWait(10);
        quick.start(VANTOR_TOOL, QStringList{"install"} + arguments);
        QVERIFY(quick.waitForFinished(30'000));
        QCOMPARE(quick.exitCode(), int(ErrorCode::Locked));
        QVERIFY2(quick.readAllStandardError().contains("Another process"), "the refusal names the other process");
        // One that waits gets its turn and finds the work done.
        quick.start(VANTOR_TOOL, QStringList{"update", "--wait", "60"} + arguments);
        QVERIFY(slow.waitForFinished(60'000) && quick.waitForFinished(60'000));
        QVERIFY2(slow.exitStatus() == QProcess::NormalExit && slow.exitCode() == 0, slow.readAllStandardError().constData());
        QVERIFY2(quick.exitStatus() == QProcess::NormalExit && quick.exitCode() == 0, quick.readAllStandardError().constData());
        QVERIFY(quick.readAllStandardOutput().contains("Version 2.0 is installed and current."));
        QCOMPARE(treeDigest(dir), treeDigest(served.repository.source(2)));
    }

    void fullDiskIsRefusedBeforeDownloading()
    {
        Served served;
        QVERIFY(served.start());
        QTemporaryDir home;
        const QString dir = home.path() + "/small";
        QDir().mkpath(dir);
        // A 1 MiB file system of our own in a mount namespace of our own (root or not).
        const QString script = QStringLiteral("mount -t tmpfs -o size=1m vantortest '%1' || exit 99; '%2' install --dir '%1' "
                                              "--repository %3 --project demo --public-key %4; echo \"exit=$?\"; "
                                              "find '%1' -mindepth 1 -not -path '*/.vantor*'")
                                   .arg(dir, VANTOR_TOOL, served.server.url().toString(), served.repository.publicKeyText());
        const auto run = testsupport::runProcess("unshare", {"-Urm", "sh", "-c", script});
        if (run.exitCode == 99 || !run.finished || (run.status == QProcess::NormalExit && run.exitCode != 0 && !run.out.contains("exit=")))
            QSKIP(qPrintable("no tmpfs can be mounted here (not root, no user namespaces): " + run.err));
        QVERIFY2(run.out.startsWith("exit=11\n"), (run.out + run.err).constData());
        QVERIFY2(run.out.trimmed() == "exit=11", "nothing of the game was written");
        QVERIFY2(run.err.contains("Not enough free space"), run.err.constData());
        QCOMPARE(served.server.bytesSent("/chunks/"), 0);
    }

    void toolCommands_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QByteArray>("output");
        QTest::newRow("--help") << QStringList{"--help"} << 0 << QByteArray("Exit codes:");
        QTest::newRow("install --help") << QStringList{"install", "--help"} << 0 << QByteArray("--public-key");
        QTest::newRow("publish --help") << QStringList{"publish", "--help"} << 0 << QByteArray("--valid-days");
        QTest::newRow("unknown command") << QStringList{"frobnicate"} << 2 << QByteArray("unknown command");
        QTest::newRow("no directory") << QStringList{"verify"} << 2 << QByteArray("--dir");
        QTest::newRow("not a key") << QStringList{"install", "--dir", "/tmp/x", "--public-key", "nonsense"} << 2
                                   << QByteArray("is not a public key");
        QTest::newRow("nothing installed") << QStringList{"status", "--dir", "/nonexistent/game"} << 15
                                           << QByteArray("Nothing is installed");
    }

    void toolCommands()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QByteArray, output);
        const auto run = testsupport::runProcess(VANTOR_TOOL, arguments);
        QVERIFY2(run.exitedWith(exitCode), (run.out + run.err).constData());
        QVERIFY2((run.out + run.err).contains(output), (run.out + run.err).constData());
    }
};

QTEST_GUILESS_MAIN(TestVantorClient)
#include "tst_vantorclient.moc"
