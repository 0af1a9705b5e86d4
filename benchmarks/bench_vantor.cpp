// The update engine against casync on a generated ~256 MiB game tree and its next version,
// both served by nginx on loopback, both measured in the same run with a warm page cache:
// publish, full install, delta update (time and bytes counted at the server), verify, and the
// tool's peak memory for a 1 GiB tree against a 16 MiB one.
//
// Each benchmark runs its step once (the steps depend on each other and take seconds); the
// figures are counters: "ms" for each side, "ratio" for vantor against its anchor.
#include "BenchmarkSupport.h"
#include "GameTreeGenerator.h"

#include <NginxServer.h>

#include <vantor/Keys.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDirIterator>
#include <QtCore/QElapsedTimer>
#include <QtCore/QTemporaryDir>

#include <openssl/evp.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct Run
{
    double ms = 0;
    long maxRssKiB = 0;
    int exitCode = -1;
};

/// Runs a program to its end and measures its wall time and peak resident memory.
Run run(const QString& program, const QStringList& arguments, bool quiet = true)
{
    QList<QByteArray> storage{program.toLocal8Bit()};
    for (const QString& argument : arguments)
        storage.append(argument.toLocal8Bit());
    std::vector<char*> argv;
    for (QByteArray& item : storage)
        argv.push_back(item.data());
    argv.push_back(nullptr);
    QElapsedTimer clock;
    clock.start();
    const pid_t pid = ::fork();
    if (pid == 0) {
        if (quiet) {
            const int null = ::open("/dev/null", O_WRONLY);
            ::dup2(null, 1);
            ::dup2(null, 2);
        }
        ::execvp(argv[0], argv.data());
        ::_exit(127);
    }
    int status = 0;
    rusage usage{};
    ::wait4(pid, &status, 0, &usage);
    return {double(clock.nsecsElapsed()) / 1e6, usage.ru_maxrss, WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}

QStringList filesBelow(const QString& root)
{
    QStringList files;
    QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        if (!path.contains(QLatin1String("/.vantor/")))
            files.append(path);
    }
    files.sort();
    return files;
}

/// One single-threaded SHA-256 pass over `files` with OpenSSL: the anchor of verification.
double opensslPassMs(const QStringList& files)
{
    QElapsedTimer clock;
    clock.start();
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    std::vector<char> buffer(1 << 20);
    for (const QString& path : files) {
        const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY);
        EVP_DigestInit_ex(context, EVP_sha256(), nullptr);
        for (ssize_t n; (n = ::read(fd, buffer.data(), buffer.size())) > 0;)
            EVP_DigestUpdate(context, buffer.data(), size_t(n));
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned int length = 0;
        EVP_DigestFinal_ex(context, digest, &length);
        ::close(fd);
    }
    EVP_MD_CTX_free(context);
    return double(clock.nsecsElapsed()) / 1e6;
}

/// Everything the benchmarks share, set up once: the trees, the key, nginx over the stores.
struct World
{
    QTemporaryDir dir{QDir::tempPath() + QStringLiteral("/vantor-bench-XXXXXX")};
    QString tool = QStringLiteral(VANTOR_TOOL);
    QString root = dir.path();
    QString v1 = root + QStringLiteral("/v1"), v2 = root + QStringLiteral("/v2");
    QString keyFile = root + QStringLiteral("/release.key");
    QString publicKey;
    std::unique_ptr<testsupport::NginxServer> server;

    World()
    {
        gametree::generate(v1, 1.0);
        run(QStringLiteral("cp"), {QStringLiteral("-a"), v1, v2});
        gametree::makeNextVersion(v2);
        QByteArray pub, secret;
        tvl::vantor::Keys::generate(&pub, &secret);
        tvl::vantor::Keys::writeSecretKey(keyFile, secret);
        publicKey = tvl::vantor::Keys::encodePublicKey(pub);
        QDir().mkpath(root + QStringLiteral("/www/vantor"));
        QDir().mkpath(root + QStringLiteral("/www/casync/store"));
        server = std::make_unique<testsupport::NginxServer>(root + QStringLiteral("/www"));
        server->enableHttp2Cleartext();
        QString error;
        if (!server->start(&error))
            qFatal("%s", qPrintable(error));
    }
    QString url(const QString& path) const { return server->url().toString() + path; }
    QStringList client(const QString& project, const QString& dir) const
    {
        return {QStringLiteral("--dir"), dir, QStringLiteral("--repository"), url(QStringLiteral("vantor")), QStringLiteral("--project"),
                project, QStringLiteral("--public-key"), publicKey};
    }
    /// The same over HTTP/2 from the same nginx, on its port without TLS.
    QStringList http2Client(const QString& project, const QString& dir) const
    {
        return {QStringLiteral("--dir"), dir, QStringLiteral("--repository"), server->http2Url().toString() + QStringLiteral("vantor"),
                QStringLiteral("--http2-prior-knowledge"),
                QStringLiteral("--project"), project, QStringLiteral("--public-key"), publicKey};
    }
    Run publish(const QString& source, const QString& project, const QString& version, const QString& repository = {}) const
    {
        return run(tool, {QStringLiteral("publish"), source, QStringLiteral("--project"), project, QStringLiteral("--version"), version,
                          QStringLiteral("--key"), keyFile, QStringLiteral("--repository"),
                          repository.isEmpty() ? root + QStringLiteral("/www/vantor") : repository});
    }
    Run casyncMake(const QString& source, const QString& index, const QString& store = {}) const
    {
        return run(QStringLiteral("casync"), {QStringLiteral("make"),
                                              QStringLiteral("--store=") + (store.isEmpty() ? root + QStringLiteral("/www/casync/store") : store),
                                              QStringLiteral("--chunk-size=16K:64K:256K"),
                                              (store.isEmpty() ? root + QStringLiteral("/www/casync/") : store + QLatin1Char('/')) + index, source});
    }
    Run casyncExtract(const QString& index, const QString& target, const QString& seed = {}) const
    {
        QStringList arguments{QStringLiteral("extract"), QStringLiteral("--store=") + url(QStringLiteral("casync/store"))};
        if (!seed.isEmpty())
            arguments.append(QStringLiteral("--seed=") + seed);
        arguments += {url(QStringLiteral("casync/") + index), target};
        return run(QStringLiteral("casync"), arguments);
    }
    qint64 chunkBytes(const QString& uriPart) const { return server->bytesSent(uriPart); }
};

World& world()
{
    static World instance;
    return instance;
}

void check(benchmark::State& state, const Run& result, const char* what)
{
    if (result.exitCode != 0)
        state.SkipWithError(what);
}

void report(benchmark::State& state, double vantor, double anchor)
{
    state.counters["vantor_ms"] = vantor;
    state.counters["anchor_ms"] = anchor;
    state.counters["ratio"] = vantor / anchor;
    state.SetIterationTime(vantor / 1000.0);
}

// The machine is shared with other builds, so each side runs several times, alternating with
// the other, and the best time of each counts.
constexpr int Rounds = 3;

void BM_Publish(benchmark::State& state)
{
    World& w = world();
    for (auto _ : state) {
        double vantor = 1e12, casync = 1e12;
        for (int round = 0; round < Rounds; ++round) {
            // Into empty stores each time, the last time into those that are served.
            const bool last = round == Rounds - 1;
            const QString scratch = w.root + QStringLiteral("/scratch");
            QDir(scratch).removeRecursively();
            QDir().mkpath(scratch + QStringLiteral("/store"));
            const Run c = w.casyncMake(w.v1, QStringLiteral("v1.caidx"), last ? QString() : scratch + QStringLiteral("/store"));
            const Run v = w.publish(w.v1, QStringLiteral("game"), QStringLiteral("1"), last ? QString() : scratch + QStringLiteral("/vantor"));
            check(state, c, "casync make failed");
            check(state, v, "vantor publish failed");
            casync = std::min(casync, c.ms);
            vantor = std::min(vantor, v.ms);
        }
        QDir(w.root + QStringLiteral("/scratch")).removeRecursively();
        report(state, vantor, casync);
    }
}

void BM_FullInstall(benchmark::State& state)
{
    World& w = world();
    for (auto _ : state) {
        double vantor = 1e12, vantorHttp2 = 1e12, casync = 1e12;
        qint64 vantorBytes = 0, casyncBytes = 0;
        for (int round = 0; round < 2; ++round) {
            QDir(w.root + QStringLiteral("/casync-v1")).removeRecursively();
            QDir(w.root + QStringLiteral("/installed")).removeRecursively();
            QDir(w.root + QStringLiteral("/installed-http2")).removeRecursively();
            w.server->clearLog();
            const Run c = w.casyncExtract(QStringLiteral("v1.caidx"), w.root + QStringLiteral("/casync-v1"));
            casyncBytes = w.chunkBytes(QStringLiteral("/casync/"));
            w.server->clearLog();
            const Run v = run(w.tool, QStringList{QStringLiteral("install")} + w.client(QStringLiteral("game"), w.root + QStringLiteral("/installed")));
            vantorBytes = w.chunkBytes(QStringLiteral("/vantor/"));
            const Run h = run(w.tool, QStringList{QStringLiteral("install")}
                                          + w.http2Client(QStringLiteral("game"), w.root + QStringLiteral("/installed-http2")));
            check(state, c, "casync extract failed");
            check(state, v, "vantor install failed");
            check(state, h, "vantor install over HTTP/2 failed");
            casync = std::min(casync, c.ms);
            vantor = std::min(vantor, v.ms);
            vantorHttp2 = std::min(vantorHttp2, h.ms);
        }
        QDir(w.root + QStringLiteral("/installed-http2")).removeRecursively();
        report(state, vantor, casync);
        state.counters["vantor_http2_ms"] = vantorHttp2;
        state.counters["ratio_http2"] = vantorHttp2 / casync;
        state.counters["vantor_bytes"] = double(vantorBytes);
        state.counters["casync_bytes"] = double(casyncBytes);
    }
}

void BM_DeltaUpdate(benchmark::State& state)
{
    World& w = world();
    for (auto _ : state) {
        w.casyncMake(w.v2, QStringLiteral("v2.caidx"));
        QStringList before;
        QDirIterator chunks(w.root + QStringLiteral("/www/vantor/game/chunks"), QDir::Files, QDirIterator::Subdirectories);
        while (chunks.hasNext())
            before.append(chunks.next());
        w.publish(w.v2, QStringLiteral("game"), QStringLiteral("2"));
        // The compressed size of the chunks that really changed: those version 2 added.
        qint64 changed = 0;
        QDirIterator after(w.root + QStringLiteral("/www/vantor/game/chunks"), QDir::Files, QDirIterator::Subdirectories);
        while (after.hasNext()) {
            const QString path = after.next();
            if (!before.contains(path))
                changed += QFileInfo(path).size();
        }
        const QString installed = w.root + QStringLiteral("/installed"), saved = w.root + QStringLiteral("/installed-v1");
        run(QStringLiteral("cp"), {QStringLiteral("-a"), installed, saved});
        double vantor = 1e12, casync = 1e12;
        qint64 vantorBytes = 0, casyncBytes = 0;
        for (int round = 0; round < 2; ++round) {
            if (round > 0) {
                QDir(installed).removeRecursively();
                run(QStringLiteral("cp"), {QStringLiteral("-a"), saved, installed});
            }
            QDir(w.root + QStringLiteral("/casync-v2")).removeRecursively();
            w.server->clearLog();
            const Run c = w.casyncExtract(QStringLiteral("v2.caidx"), w.root + QStringLiteral("/casync-v2"), w.root + QStringLiteral("/casync-v1"));
            casyncBytes = w.chunkBytes(QStringLiteral("/casync/"));
            w.server->clearLog();
            const Run v = run(w.tool, QStringList{QStringLiteral("update")} + w.client(QStringLiteral("game"), installed));
            vantorBytes = w.chunkBytes(QStringLiteral("/vantor/"));
            check(state, c, "casync extract --seed failed");
            check(state, v, "vantor update failed");
            casync = std::min(casync, c.ms);
            vantor = std::min(vantor, v.ms);
        }
        QDir(saved).removeRecursively();
        report(state, vantor, casync);
        state.counters["vantor_bytes"] = double(vantorBytes);
        state.counters["casync_bytes"] = double(casyncBytes);
        state.counters["changed_chunk_bytes"] = double(changed);
        state.counters["bytes_vs_casync"] = double(vantorBytes) / double(casyncBytes);
        state.counters["bytes_vs_changed"] = double(vantorBytes) / double(changed);
    }
}

void BM_Verify(benchmark::State& state)
{
    World& w = world();
    const QString installed = w.root + QStringLiteral("/installed");
    const QStringList files = filesBelow(installed);
    for (auto _ : state) {
        // The best of three for both sides: the machine is shared, and a pass is short.
        double openssl = 1e12, opensslTool = 1e12;
        Run vantor;
        vantor.ms = 1e12;
        for (int i = 0; i < Rounds; ++i) {
            openssl = std::min(openssl, opensslPassMs(files));
            // The same pass as a process of its own, as the tool is one: "openssl dgst" over every file.
            opensslTool = std::min(opensslTool, run(QStringLiteral("openssl"), QStringList{QStringLiteral("dgst"), QStringLiteral("-sha256")} + files).ms);
            const Run pass = run(w.tool, {QStringLiteral("verify"), QStringLiteral("--dir"), installed});
            if (pass.ms < vantor.ms)
                vantor = pass;
        }
        state.counters["openssl_process_ms"] = opensslTool;
        state.counters["ratio_vs_process"] = vantor.ms / opensslTool;
        const Run sha256sum = run(QStringLiteral("sh"), {QStringLiteral("-c"),
                                                         QStringLiteral("cd '%1' && find . -type f -not -path './.vantor/*' -print0 | xargs -0 sha256sum")
                                                             .arg(installed)});
        check(state, vantor, "vantor verify failed");
        report(state, vantor.ms, openssl);
        state.counters["sha256sum_ms"] = sha256sum.ms;
    }
}

void BM_Memory(benchmark::State& state)
{
    World& w = world();
    for (auto _ : state) {
        Run small, large;
        for (const auto& [scale, result] : {std::pair{1.0 / 16, &small}, std::pair{4.0, &large}}) {
            const QString project = QStringLiteral("mem%1").arg(int(scale * 16));
            const QString source = w.root + QStringLiteral("/") + project;
            gametree::generate(source, scale, 7);
            w.publish(source, project, QStringLiteral("1"));
            QDir(source).removeRecursively(); // keep the disk use down
            *result = run(w.tool, QStringList{QStringLiteral("install")} + w.client(project, w.root + QStringLiteral("/installed-") + project));
            QDir(w.root + QStringLiteral("/installed-") + project).removeRecursively();
            check(state, *result, "vantor install failed");
        }
        state.counters["rss_16MiB_MiB"] = double(small.maxRssKiB) / 1024.0;
        state.counters["rss_1GiB_MiB"] = double(large.maxRssKiB) / 1024.0;
        state.counters["difference_MiB"] = double(large.maxRssKiB - small.maxRssKiB) / 1024.0;
        state.SetIterationTime(large.ms / 1000.0);
    }
}

} // namespace

BENCHMARK(BM_Publish)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FullInstall)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DeltaUpdate)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Verify)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Memory)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    return runBenchmarks(argc, argv);
}
