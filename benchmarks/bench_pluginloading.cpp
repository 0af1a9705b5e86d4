// Loading and initialising 200 trivial plugins through the plugin host (loadPlugins()), against
// loading the same libraries with QPluginLoader::load() and instance() alone.
//
// Each measurement runs in a fresh child process (this executable, started again with
// "--child host|baseline DIR"), which times only the loading and prints nanoseconds; the
// benchmark's manual time is the children's. Within one process the measurement
// cannot be repeated: a library once loaded stays mapped (the host never unloads a library when
// its records are destroyed, and Qt keeps its plugin registry), so a second load of the same
// files costs next to nothing; loading fresh copies in every iteration instead would leave
// thousands of libraries mapped after a few dozen iterations, and every later dlopen() pays for
// walking them. A fresh process gives every iteration the state of a real start: Qt and
// libupdater mapped, no plugin yet.
#include <libupdater/UpdaterPlugin.h>
#include <libupdater/UpdaterPluginsManager.h>

#include <basix/AbstractLoggerOutput.h>
#include <basix/Logger.h>

#include "BenchmarkSupport.h"

#include <benchmark/benchmark.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QPluginLoader>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

using tvl::Logger;
using tvl::updater::UpdaterPlugin;
using tvl::updater::UpdaterPluginsManager;

namespace {

constexpr int PluginCount = 200;
constexpr int ChildTimeoutMs = 60000;

/// 200 copies of the trivial plugin, "lib<name>.so" each with its descriptor.
class PluginDirectory
{
public:
    PluginDirectory()
    {
        for (int i = 0; i < PluginCount && m_ok; ++i) {
            const QString name = QStringLiteral("trivial%1").arg(i, 3, 10, QLatin1Char('0'));
            const QByteArray descriptor = "name = \"" + name.toLatin1() + "\"\n";
            QFile file(m_directory.filePath(name + QStringLiteral(".updaterplugin")));
            const QString library = m_directory.filePath(QStringLiteral("lib%1.so").arg(name));
            m_ok = QFile::copy(QStringLiteral(TRIVIAL_PLUGIN), library) && file.open(QIODevice::WriteOnly)
                && file.write(descriptor) == descriptor.size();
        }
    }

    bool isValid() const { return m_ok && m_directory.isValid(); }
    QString path() const { return m_directory.path(); }

private:
    QTemporaryDir m_directory;
    bool m_ok = true;
};

const PluginDirectory& pluginDirectory()
{
    static const PluginDirectory instance;
    return instance;
}

// --- in the child -----------------------------------------------------------------------------

qint64 loadThroughHost(const QString& directory)
{
    UpdaterPluginsManager manager;
    manager.setPluginPath(directory);
    QElapsedTimer timer;
    timer.start();
    const bool loaded = manager.loadPlugins(false);
    const qint64 elapsed = timer.nsecsElapsed();
    return loaded && manager.loadedPlugins().size() == PluginCount ? elapsed : -1;
}

qint64 loadAlone(const QString& directory)
{
    const QStringList files =
        QDir(directory).entryList(QStringList{QStringLiteral("lib*.so")}, QDir::Files, QDir::Name);
    std::vector<std::unique_ptr<QPluginLoader>> loaders;
    loaders.reserve(std::size_t(files.size()));
    QElapsedTimer timer;
    timer.start();
    for (const QString& file : files) {
        auto loader = std::make_unique<QPluginLoader>(directory + QLatin1Char('/') + file);
        loader->load();
        if (!qobject_cast<UpdaterPlugin*>(loader->instance()))
            return -1;
        loaders.push_back(std::move(loader));
    }
    const qint64 elapsed = timer.nsecsElapsed();
    return files.size() == PluginCount ? elapsed : -1;
}

int runChild(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QString mode = QString::fromLocal8Bit(argv[2]);
    const QString directory = QString::fromLocal8Bit(argv[3]);
    // As the host runs: notices and above, handed to an output thread.
    DiscardingOutput output;
    Logger::instance()->setMinimumLevel(Logger::Notice);
    Logger::instance()->addOutput(&output);
    const qint64 elapsed = mode == QLatin1String("host") ? loadThroughHost(directory) : loadAlone(directory);
    Logger::instance()->removeOutput(&output);
    if (elapsed < 0)
        return 1;
    std::printf("%lld\n", static_cast<long long>(elapsed));
    return 0;
}

// --- in the benchmark -------------------------------------------------------------------------

/// Nanoseconds that a fresh child took to load the plugins in `mode`; -1 on failure.
qint64 measureInChild(const QString& mode)
{
    QProcess child;
    child.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--child"), mode, pluginDirectory().path()});
    if (!child.waitForFinished(ChildTimeoutMs) || child.exitStatus() != QProcess::NormalExit || child.exitCode() != 0)
        return -1;
    bool parsed = false;
    const qint64 elapsed = child.readAllStandardOutput().trimmed().toLongLong(&parsed);
    return parsed ? elapsed : -1;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

/**
 * Every iteration starts two children: one loads the plugins with the host's loadPlugins()
 * (selection, ordering, QPluginLoader, init(api) and the all-plugins-loaded event for every
 * plugin), the other with QPluginLoader::load() and instance() alone, in alternating order so
 * that neither always runs on a machine the other has just warmed up or disturbed. The
 * iteration's time is the host's; the counters give the medians of both and their ratio.
 */
void BM_LoadPlugins(benchmark::State& state)
{
    if (!pluginDirectory().isValid()) {
        state.SkipWithError("cannot prepare the plugin directory");
        return;
    }
    std::vector<double> host;
    std::vector<double> baseline;
    for (auto _ : state) {
        const bool hostFirst = host.size() % 2 == 0;
        const qint64 first = measureInChild(hostFirst ? QStringLiteral("host") : QStringLiteral("baseline"));
        const qint64 second = measureInChild(hostFirst ? QStringLiteral("baseline") : QStringLiteral("host"));
        if (first < 0 || second < 0) {
            state.SkipWithError("a child did not load every plugin");
            return;
        }
        host.push_back(double(hostFirst ? first : second) / 1e6);
        baseline.push_back(double(hostFirst ? second : first) / 1e6);
        state.SetIterationTime(host.back() / 1e3);
    }
    const double hostMs = median(host);
    const double baselineMs = median(baseline);
    state.counters["host_ms"] = hostMs;
    state.counters["baseline_ms"] = baselineMs;
    state.counters["host_us_per_plugin"] = hostMs * 1e3 / PluginCount;
    state.counters["baseline_us_per_plugin"] = baselineMs * 1e3 / PluginCount;
    state.counters["ratio"] = hostMs / baselineMs;
}
BENCHMARK(BM_LoadPlugins)->UseManualTime()->Iterations(40)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    if (argc == 4 && qstrcmp(argv[1], "--child") == 0)
        return runChild(argc, argv);

    QCoreApplication application(argc, argv);
    return runBenchmarks(argc, argv);
}
