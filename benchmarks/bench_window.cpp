// The launcher's window as a player meets it, in a real launcher process under Xvfb:
// - start-up: from the process's start to its window exposed with the project list filled, against
//   the same launcher started with --no-gui to its plugins loaded (at most 300 ms more);
// - responsiveness: the main thread's event-loop lateness (99th percentile) while the window shows
//   the trailer and an install runs at full speed, against the same window idle for as long (at most
//   20 ms more).
//
// Probe plugins in the launcher measure: WindowProbePlugin.cpp says when the launcher is ready,
// EngineProbePlugin.cpp measures the lateness of a 5 ms timer. Start-ups are the median of seven
// runs of each side, alternating.
#include "BenchmarkSupport.h"
#include "GameTreeGenerator.h"

#include <DesktopSession.h>
#include <NginxServer.h>

#include <vantor/Keys.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QJsonObject>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>

#include <algorithm>
#include <memory>

namespace {

struct World
{
    QTemporaryDir dir{QDir::tempPath() + QStringLiteral("/window-bench-XXXXXX")};
    QString root = dir.path();
    QString keyFile = root + QStringLiteral("/release.key");
    QString publicKey;
    std::unique_ptr<testsupport::NginxServer> server;
    testsupport::VirtualDisplay display;

    World()
    {
        if (!display.start())
            qFatal("Xvfb does not start");
        QByteArray pub, secret;
        tvl::vantor::Keys::generate(&pub, &secret);
        tvl::vantor::Keys::writeSecretKey(keyFile, secret);
        publicKey = tvl::vantor::Keys::encodePublicKey(pub);
        QDir().mkpath(root + QStringLiteral("/www"));
        gametree::generate(root + QStringLiteral("/v1"), 1.0);
        QProcess::execute(QStringLiteral(VANTOR_TOOL), {QStringLiteral("publish"), root + QStringLiteral("/v1"), QStringLiteral("--project"),
                                                       QStringLiteral("game"), QStringLiteral("--version"), QStringLiteral("1"),
                                                       QStringLiteral("--key"), keyFile, QStringLiteral("--repository"), root + QStringLiteral("/www")});
        server = std::make_unique<testsupport::NginxServer>(root + QStringLiteral("/www"));
        QString error;
        if (!server->start(&error))
            qFatal("%s", qPrintable(error));
        // Every bundled plugin a player has, without the console, and the two probes.
        const QString plugins = root + QStringLiteral("/plugins");
        QDir().mkpath(plugins);
        for (const char* name : {"settings", "sysinfo", "network", "engine", "errors", "i18n", "notifications", "window"}) {
            for (const QString& file : {QStringLiteral("lib%1.so"), QStringLiteral("%1.updaterplugin")})
                QFile::copy(QStringLiteral(BUNDLED_PLUGIN_DIR "/") + file.arg(QLatin1String(name)), plugins + QLatin1Char('/') + file.arg(QLatin1String(name)));
        }
        QFile::copy(QStringLiteral(WINDOW_PROBE_PLUGIN), plugins + QStringLiteral("/libwindowprobe.so"));
        QFile::copy(QStringLiteral(ENGINE_PROBE_PLUGIN), plugins + QStringLiteral("/libengineprobe.so"));
    }

    /// A fresh home with a configuration of one project (installed automatically or not) and the probe
    /// named `probe` enabled with `data`.
    QString prepare(bool automatic, const QString& probe, const QString& data) const
    {
        const QString home = root + QStringLiteral("/home");
        QDir(home).removeRecursively();
        QDir().mkpath(home);
        writeFile(home + QStringLiteral("/launcher.lua"),
                  QStringLiteral("update = { automatic = %1, check_interval_minutes = 600 }\n"
                                 "projects = { game = { name = 'Bench Game', url = '%2', channel = 'stable', dir = '%3', keys = { '%4' },\n"
                                 "                      trailer = '%5' } }\n")
                      .arg(automatic ? QStringLiteral("true") : QStringLiteral("false"), server->url().toString(),
                           home + QStringLiteral("/game"), publicKey, QStringLiteral(TRAILER)));
        for (const QString& name : {QStringLiteral("windowprobe"), QStringLiteral("engineprobe")}) {
            writeFile(root + QStringLiteral("/plugins/%1.updaterplugin").arg(name),
                      name == probe ? QStringLiteral("name = '%1'\nsoft_depends = { 'engine', 'window' }\ndata = { %2 }\n").arg(name, data)
                                    : QStringLiteral("name = '%1'\nautoload = false\n").arg(name));
        }
        return home;
    }

    QProcess* start(const QString& home, bool gui) const
    {
        auto* launcher = new QProcess;
        QProcessEnvironment environment = launcherEnvironment(home);
        environment.insert(QStringLiteral("DISPLAY"), display.display());
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
        environment.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
        launcher->setProcessEnvironment(environment);
        launcher->setStandardInputFile(QProcess::nullDevice());
        launcher->setStandardErrorFile(QProcess::nullDevice());
        QStringList arguments{QStringLiteral("--log-level=4"), QStringLiteral("--plugin-dir=") + root + QStringLiteral("/plugins"),
                              QStringLiteral("--config=") + home + QStringLiteral("/launcher.lua")};
        if (!gui)
            arguments.prepend(QStringLiteral("--no-gui"));
        launcher->start(QStringLiteral(UPDATER_EXECUTABLE), arguments);
        return launcher;
    }

    /// Milliseconds from the launcher's start to its probe saying it is ready; -1 if it never did.
    double startUp(bool gui) const
    {
        const QString home = prepare(false, QStringLiteral("windowprobe"), QString());
        QElapsedTimer clock;
        clock.start();
        std::unique_ptr<QProcess> launcher(start(home, gui));
        QByteArray out;
        double readyMs = -1;
        while (readyMs < 0 && launcher->waitForReadyRead(60'000)) {
            out += launcher->readAllStandardOutput();
            if (out.contains("PROBE ready"))
                readyMs = double(clock.nsecsElapsed()) / 1e6;
        }
        if (!launcher->waitForFinished(30'000))
            launcher->kill();
        launcher->waitForFinished();
        return readyMs;
    }

    QJsonObject lateness(bool installing, int idleMs) const
    {
        const QString home = prepare(installing, QStringLiteral("engineprobe"),
                                     installing ? QString() : QStringLiteral("idle_ms = %1").arg(idleMs));
        std::unique_ptr<QProcess> launcher(start(home, true));
        if (!launcher->waitForFinished(30 * 60 * 1000))
            launcher->kill();
        return probeFigures(launcher->readAllStandardOutput());
    }

    static void writeFile(const QString& path, const QString& text)
    {
        QFile file(path);
        if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            file.write(text.toUtf8());
    }
};

World& world()
{
    static World instance;
    return instance;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? -1 : values[values.size() / 2];
}

void BM_StartToTheWindow(benchmark::State& state)
{
    World& w = world();
    for (auto _ : state) {
        std::vector<double> window, console;
        for (int round = 0; round < 7; ++round) {
            window.push_back(w.startUp(true));
            console.push_back(w.startUp(false));
        }
        const double windowMs = median(window), consoleMs = median(console);
        if (*std::min_element(window.begin(), window.end()) < 0 || *std::min_element(console.begin(), console.end()) < 0)
            state.SkipWithError("a launcher did not get ready");
        state.counters["window_ms"] = windowMs;
        state.counters["no_gui_ms"] = consoleMs;
        state.counters["difference_ms"] = windowMs - consoleMs;
        state.SetIterationTime(windowMs / 1000.0);
    }
}

void BM_WindowResponsivenessDuringAnInstall(benchmark::State& state)
{
    World& w = world();
    for (auto _ : state) {
        const QJsonObject busy = w.lateness(true, 0);
        if (!busy.value(QStringLiteral("success")).toBool())
            state.SkipWithError("the install failed");
        const QJsonObject idle = w.lateness(false, int(busy.value(QStringLiteral("operation_ms")).toDouble()));
        reportLateness(state, busy, idle);
    }
}

} // namespace

BENCHMARK(BM_StartToTheWindow)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WindowResponsivenessDuringAnInstall)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    return runBenchmarks(argc, argv);
}
