// The update engine as the launcher runs it (the engine plugin over the network plugin, in a real
// launcher process) against the vantor tool on the same generated game trees, served by nginx on
// loopback, both measured in the same run: a full install and a delta update (the launcher at most
// 1.1 times the tool's time); the main thread's event-loop lateness during a full-speed install
// against the same launcher idle for as long (at most 20 ms more at the 99th percentile); and the
// launcher's peak memory installing a 1 GiB tree against the same launcher idle (at most 64 MiB more).
//
// A probe plugin in the launcher (EngineProbePlugin.cpp) measures its side and prints one line of
// JSON. Each benchmark runs once and reports counters; each side runs twice and the better run counts.
#include "BenchmarkSupport.h"
#include "GameTreeGenerator.h"

#include <NginxServer.h>

#include <vantor/Keys.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QJsonObject>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>

#include <memory>

namespace {

QJsonObject runLauncher(const QString& home, const QStringList& arguments)
{
    QProcess launcher;
    launcher.setProcessEnvironment(launcherEnvironment(home));
    launcher.setStandardInputFile(QProcess::nullDevice());
    launcher.setStandardErrorFile(QProcess::nullDevice());
    launcher.start(QStringLiteral(UPDATER_EXECUTABLE), QStringList{QStringLiteral("--no-gui"), QStringLiteral("--log-level=4")} + arguments);
    if (!launcher.waitForFinished(30 * 60 * 1000))
        launcher.kill();
    return probeFigures(launcher.readAllStandardOutput());
}

double runTool(const QStringList& arguments)
{
    QProcess tool;
    tool.setStandardOutputFile(QProcess::nullDevice());
    tool.setStandardErrorFile(QProcess::nullDevice());
    QElapsedTimer clock;
    clock.start();
    tool.start(QStringLiteral(VANTOR_TOOL), arguments);
    tool.waitForFinished(30 * 60 * 1000);
    return tool.exitCode() == 0 ? double(clock.nsecsElapsed()) / 1e6 : -1;
}

void copyTree(const QString& from, const QString& to)
{
    QDir(to).removeRecursively();
    QProcess::execute(QStringLiteral("cp"), {QStringLiteral("-a"), from, to});
}

struct World
{
    QTemporaryDir dir{QDir::tempPath() + QStringLiteral("/engine-bench-XXXXXX")};
    QString root = dir.path();
    QString keyFile = root + QStringLiteral("/release.key");
    QString publicKey;
    std::unique_ptr<testsupport::NginxServer> server;

    World()
    {
        QByteArray pub, secret;
        tvl::vantor::Keys::generate(&pub, &secret);
        tvl::vantor::Keys::writeSecretKey(keyFile, secret);
        publicKey = tvl::vantor::Keys::encodePublicKey(pub);
        QDir().mkpath(root + QStringLiteral("/www"));
        gametree::generate(root + QStringLiteral("/v1"), 1.0);
        copyTree(root + QStringLiteral("/v1"), root + QStringLiteral("/v2"));
        gametree::makeNextVersion(root + QStringLiteral("/v2"));
        publish(QStringLiteral("v1"), QStringLiteral("full"), QStringLiteral("1"));
        publish(QStringLiteral("v1"), QStringLiteral("delta"), QStringLiteral("1"));
        server = std::make_unique<testsupport::NginxServer>(root + QStringLiteral("/www"));
        QString error;
        if (!server->start(&error))
            qFatal("%s", qPrintable(error));
        // Version 1 installed once by the tool, the starting point of every delta update; then 2.
        runTool(QStringList{QStringLiteral("install")} + client(QStringLiteral("delta"), root + QStringLiteral("/delta-v1")));
        publish(QStringLiteral("v2"), QStringLiteral("delta"), QStringLiteral("2"));

        // The launcher: its bundled settings, network and engine plugins and the probe.
        const QString plugins = root + QStringLiteral("/plugins");
        QDir().mkpath(plugins);
        for (const char* name : {"settings", "network", "engine"}) {
            for (const QString& file : {QStringLiteral("lib%1.so"), QStringLiteral("%1.updaterplugin")})
                QFile::copy(QStringLiteral(BUNDLED_PLUGIN_DIR "/") + file.arg(QLatin1String(name)), plugins + QLatin1Char('/') + file.arg(QLatin1String(name)));
        }
        QFile::copy(QStringLiteral(PROBE_PLUGIN), plugins + QStringLiteral("/libprobe.so"));
    }

    void publish(const QString& tree, const QString& project, const QString& version) const
    {
        QProcess::execute(QStringLiteral(VANTOR_TOOL), {QStringLiteral("publish"), root + QLatin1Char('/') + tree, QStringLiteral("--project"), project,
                                                       QStringLiteral("--version"), version, QStringLiteral("--key"), keyFile,
                                                       QStringLiteral("--repository"), root + QStringLiteral("/www")});
    }

    QStringList client(const QString& project, const QString& directory) const
    {
        return {QStringLiteral("--dir"), directory, QStringLiteral("--repository"), server->url().toString(), QStringLiteral("--project"),
                project, QStringLiteral("--public-key"), publicKey};
    }

    /// The launcher installing or updating `project` into `directory`, or idle for `idleMs` without a project.
    QJsonObject launcher(const QString& project, const QString& directory, int idleMs = 0) const
    {
        const QString home = root + QStringLiteral("/home");
        QDir(home).removeRecursively();
        QDir().mkpath(home);
        const QString script = home + QStringLiteral("/launcher.lua");
        QString text = QStringLiteral("update = { automatic = true, check_interval_minutes = 600 }\nprojects = {}\n");
        if (!project.isEmpty()) {
            text += QStringLiteral("projects['%1'] = { url = '%2', channel = 'stable', dir = '%3', keys = { '%4' } }\n")
                        .arg(project, server->url().toString(), directory, publicKey);
        }
        QFile file(script);
        if (file.open(QIODevice::WriteOnly))
            file.write(text.toUtf8());
        file.close();
        QFile probe(root + QStringLiteral("/plugins/probe.updaterplugin"));
        if (probe.open(QIODevice::WriteOnly | QIODevice::Truncate))
            probe.write(QStringLiteral("name = 'probe'\nsoft_depends = { 'engine' }\ndata = { idle_ms = %1 }\n").arg(idleMs).toUtf8());
        probe.close();
        return runLauncher(home, {QStringLiteral("--plugin-dir=") + root + QStringLiteral("/plugins"), QStringLiteral("--config=") + script});
    }
};

World& world()
{
    static World instance;
    return instance;
}

void compare(benchmark::State& state, double launcherMs, double toolMs)
{
    state.counters["launcher_ms"] = launcherMs;
    state.counters["tool_ms"] = toolMs;
    state.counters["ratio"] = launcherMs / toolMs;
    state.SetIterationTime(launcherMs / 1000.0);
}

void BM_FullInstallThroughTheLauncher(benchmark::State& state)
{
    World& w = world();
    for (auto _ : state) {
        double launcher = 1e12, tool = 1e12;
        for (int round = 0; round < 2; ++round) {
            const QString toolDir = w.root + QStringLiteral("/tool-full"), launcherDir = w.root + QStringLiteral("/launcher-full");
            QDir(toolDir).removeRecursively();
            QDir(launcherDir).removeRecursively();
            const double t = runTool(QStringList{QStringLiteral("install")} + w.client(QStringLiteral("full"), toolDir));
            const QJsonObject l = w.launcher(QStringLiteral("full"), launcherDir);
            if (t < 0 || !l.value(QStringLiteral("success")).toBool())
                state.SkipWithError("an install failed");
            tool = std::min(tool, t);
            launcher = std::min(launcher, l.value(QStringLiteral("operation_ms")).toDouble());
        }
        compare(state, launcher, tool);
    }
}

void BM_DeltaUpdateThroughTheLauncher(benchmark::State& state)
{
    World& w = world();
    for (auto _ : state) {
        double launcher = 1e12, tool = 1e12;
        for (int round = 0; round < 2; ++round) {
            const QString toolDir = w.root + QStringLiteral("/tool-delta"), launcherDir = w.root + QStringLiteral("/launcher-delta");
            copyTree(w.root + QStringLiteral("/delta-v1"), toolDir);
            copyTree(w.root + QStringLiteral("/delta-v1"), launcherDir);
            const double t = runTool(QStringList{QStringLiteral("update")} + w.client(QStringLiteral("delta"), toolDir));
            const QJsonObject l = w.launcher(QStringLiteral("delta"), launcherDir);
            if (t < 0 || !l.value(QStringLiteral("success")).toBool())
                state.SkipWithError("an update failed");
            tool = std::min(tool, t);
            launcher = std::min(launcher, l.value(QStringLiteral("operation_ms")).toDouble());
        }
        compare(state, launcher, tool);
    }
}

void BM_ResponsivenessDuringAnInstall(benchmark::State& state)
{
    World& w = world();
    for (auto _ : state) {
        const QString dir = w.root + QStringLiteral("/launcher-responsive");
        QDir(dir).removeRecursively();
        const QJsonObject busy = w.launcher(QStringLiteral("full"), dir);
        const QJsonObject idle = w.launcher(QString(), QString(), int(busy.value(QStringLiteral("operation_ms")).toDouble()));
        reportLateness(state, busy, idle);
    }
}

void BM_MemoryOfA1GiBInstall(benchmark::State& state)
{
    World& w = world();
    for (auto _ : state) {
        const QString source = w.root + QStringLiteral("/big");
        gametree::generate(source, 4.0, 7);
        w.publish(QStringLiteral("big"), QStringLiteral("big"), QStringLiteral("1"));
        QDir(source).removeRecursively(); // keep the disk use down
        const QString dir = w.root + QStringLiteral("/launcher-big");
        const QJsonObject busy = w.launcher(QStringLiteral("big"), dir);
        QDir(dir).removeRecursively();
        const QJsonObject idle = w.launcher(QString(), QString(), 3000);
        if (!busy.value(QStringLiteral("success")).toBool())
            state.SkipWithError("the install failed");
        const double busyMiB = busy.value(QStringLiteral("peak_rss_kib")).toDouble() / 1024.0;
        const double idleMiB = idle.value(QStringLiteral("peak_rss_kib")).toDouble() / 1024.0;
        state.counters["install_peak_MiB"] = busyMiB;
        state.counters["idle_peak_MiB"] = idleMiB;
        state.counters["difference_MiB"] = busyMiB - idleMiB;
        state.SetIterationTime(busy.value(QStringLiteral("operation_ms")).toDouble() / 1000.0);
    }
}

} // namespace

BENCHMARK(BM_FullInstallThroughTheLauncher)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DeltaUpdateThroughTheLauncher)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ResponsivenessDuringAnInstall)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MemoryOfA1GiBInstall)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    return runBenchmarks(argc, argv);
}
