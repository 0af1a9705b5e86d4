// Cost of the plugin host's work before any library is loaded, over a directory of 1,000
// descriptors: reading them and resolving their dependencies (setPluginPath()), and ordering
// them for a load (the selection, pre-sort and depth-first walk of loadPlugins()).
#include <libupdater/UpdaterPluginInfo.h>
#include <libupdater/UpdaterPluginsManager.h>
#include <libupdater/UpdaterPluginsManager_p.h>

#include <basix/AbstractLoggerOutput.h>
#include <basix/Logger.h>

#include "BenchmarkSupport.h"

#include <benchmark/benchmark.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QHash>
#include <QtCore/QTemporaryDir>

#include <algorithm>
#include <memory>
#include <random>

using tvl::Logger;
using tvl::updater::UpdaterPluginInfo;
using tvl::updater::UpdaterPluginsManager;
using tvl::updater::UpdaterPluginsManagerPrivate;

namespace {

constexpr int PluginCount = 1000;

/// Takes the records as the host's own outputs would, without the cost of formatting them.
QByteArray nameOf(int index)
{
    return QByteArray("plugin") + QByteArray::number(index).rightJustified(4, '0');
}

QByteArray listOf(const QByteArrayList& names)
{
    QByteArrayList quoted;
    for (const QByteArray& name : names)
        quoted.append('"' + name + '"');
    return "{ " + quoted.join(", ") + " }";
}

/**
 * Plugin i depends only on plugins before it and is injected ("required_by") only into plugins
 * after it, so the set has no cycle: 0 to 3 hard and 0 to 2 soft dependencies, one in ten
 * injected into a later plugin, one in a hundred replacing an old name that later plugins still
 * depend on, the last one replacing an existing plugin; a few need a GUI, are not autoload,
 * unsafe or mandatory, and a third carry a data table.
 */
QByteArray descriptorOf(int index, std::mt19937& random)
{
    const auto earlier = [&] { return nameOf(int(random() % unsigned(index))); };
    QByteArray text = "-- generated plugin " + QByteArray::number(index) + "\nname = \"" + nameOf(index) + "\"\n";
    if (index == PluginCount - 1)
        return text + "replace = { \"" + nameOf(PluginCount / 2) + "\" }\n";

    if (index % 20 == 7)
        text += "needGUI = true\n";
    if (index % 25 == 3)
        text += "autoload = false\n";
    if (index % 40 == 11)
        text += "unsafe = true\n";
    if (index % 50 == 0)
        text += "mandatory = true\n";
    if (index > 0) {
        QByteArrayList depends;
        for (unsigned n = random() % 4; n > 0; --n)
            depends.append(earlier());
        // The old name that the latest replacing plugin before this one took over.
        if (index > 100 && index % 37 == 0)
            depends.append("legacy" + QByteArray::number((index - 51) / 100 * 100 + 50));
        if (!depends.isEmpty())
            text += "depends = " + listOf(depends) + '\n';
        QByteArrayList soft;
        for (unsigned n = random() % 3; n > 0; --n)
            soft.append(earlier());
        if (!soft.isEmpty())
            text += "soft_depends = " + listOf(soft) + '\n';
    }
    if (index % 10 == 5) {
        // Never into the last plugin, which replaces one of the others: that could close a cycle.
        const int target = std::min(PluginCount - 2, index + 1 + int(random() % 50));
        if (target > index)
            text += "required_by = { \"" + nameOf(target) + "\" }\n";
    }
    if (index % 100 == 50)
        text += "replace = \"legacy" + QByteArray::number(index) + "\"\n";
    if (index % 3 == 0)
        text += "data = { url = \"https://cdn.tarvel.example/" + nameOf(index) + "\", retries = 3, timeout = 30 }\n";
    return text;
}

/// The descriptors, written once for all benchmarks.
class Descriptors
{
public:
    Descriptors()
    {
        std::mt19937 random(20240611);
        for (int i = 0; i < PluginCount && m_ok; ++i) {
            QFile file(m_directory.filePath(QString::fromLatin1(nameOf(i) + ".updaterplugin")));
            const QByteArray text = descriptorOf(i, random);
            m_ok = file.open(QIODevice::WriteOnly) && file.write(text) == text.size();
        }
    }

    bool isValid() const { return m_ok && m_directory.isValid(); }
    QString path() const { return m_directory.path(); }

private:
    QTemporaryDir m_directory;
    bool m_ok = true;
};

const Descriptors& descriptors()
{
    static const Descriptors instance;
    return instance;
}

/// The selection, pre-sort and ordering of loadPlugins() for a host without a settings manager
/// yet (every record is a candidate), with a GUI.
QList<UpdaterPluginInfo*> orderAll(UpdaterPluginsManagerPrivate* d)
{
    QStringList disabled;
    const QStringList enabled;
    QList<UpdaterPluginInfo*> candidates = d->plugins;
    for (UpdaterPluginInfo* info : std::as_const(candidates)) {
        for (const QString& replaced : info->replacedPlugins()) {
            for (UpdaterPluginInfo* other : std::as_const(d->plugins)) {
                if (other->name() == replaced)
                    disabled.append(other->name());
            }
        }
    }
    std::sort(candidates.begin(), candidates.end(), tvl::updater::compare_by_gui);
    QList<UpdaterPluginInfo*> visited;
    QList<UpdaterPluginInfo*> order;
    for (UpdaterPluginInfo* info : std::as_const(candidates)) {
        if (!disabled.contains(info->name()))
            d->sort_plugins(info, visited, order, disabled, enabled);
    }
    return order;
}

/// Whether every placed plugin comes after its hard dependencies, and everything but
/// (perhaps) the replaced plugin is placed.
bool orderIsSound(const QList<UpdaterPluginInfo*>& order)
{
    QHash<QString, qsizetype> position;
    for (qsizetype i = 0; i < order.size(); ++i)
        position.insert(order.at(i)->name(), i);
    if (position.size() < PluginCount - 1)
        return false;
    for (qsizetype i = 0; i < order.size(); ++i) {
        // Only hard dependencies: a soft one on a plugin that is not autoload does not order it.
        const QStringList names = order.at(i)->dependencies();
        for (const QString& name : names) {
            if (position.value(name, -1) > i)
                return false;
        }
    }
    return true;
}

void setCounters(benchmark::State& state)
{
    state.SetItemsProcessed(state.iterations() * PluginCount);
    state.counters["per_descriptor"] = benchmark::Counter(
        PluginCount, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// setPluginPath(): list the directory, read 1,000 descriptors, resolve their dependencies.
void BM_SetPluginPath(benchmark::State& state)
{
    if (!descriptors().isValid()) {
        state.SkipWithError("cannot write the descriptors");
        return;
    }
    for (auto _ : state) {
        state.PauseTiming();
        auto manager = std::make_unique<UpdaterPluginsManager>();
        state.ResumeTiming();
        manager->setPluginPath(descriptors().path());
        state.PauseTiming();
        if (manager->plugins().size() != PluginCount) {
            state.SkipWithError("not every descriptor was read");
            break;
        }
        manager.reset();
        state.ResumeTiming();
    }
    setCounters(state);
}
BENCHMARK(BM_SetPluginPath)->UseRealTime()->Unit(benchmark::kMillisecond);

// The ordering of a load over the records read: selection, pre-sort, depth-first placement.
void BM_Order(benchmark::State& state)
{
    UpdaterPluginsManager manager;
    manager.setPluginPath(descriptors().path());
    UpdaterPluginsManagerPrivate* d = UpdaterPluginsManagerPrivate::get(&manager);
    if (!orderIsSound(orderAll(d))) {
        state.SkipWithError("the order does not respect the dependencies");
        return;
    }
    for (auto _ : state)
        benchmark::DoNotOptimize(orderAll(d));
    setCounters(state);
}
BENCHMARK(BM_Order)->UseRealTime()->Unit(benchmark::kMillisecond);

// Both, as a start of the host does them.
void BM_SetPluginPathAndOrder(benchmark::State& state)
{
    for (auto _ : state) {
        state.PauseTiming();
        auto manager = std::make_unique<UpdaterPluginsManager>();
        state.ResumeTiming();
        manager->setPluginPath(descriptors().path());
        benchmark::DoNotOptimize(orderAll(UpdaterPluginsManagerPrivate::get(manager.get())));
        state.PauseTiming();
        manager.reset();
        state.ResumeTiming();
    }
    setCounters(state);
}
BENCHMARK(BM_SetPluginPathAndOrder)->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    // As the host runs: notices and above, handed to an output thread.
    DiscardingOutput output;
    Logger::instance()->setMinimumLevel(Logger::Notice);
    Logger::instance()->addOutput(&output);
    const int result = runBenchmarks(argc, argv);
    Logger::instance()->removeOutput(&output);
    return result;
}
