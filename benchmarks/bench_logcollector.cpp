#include <libupdater/UpdaterLogCollector.h>

#include <basix/Logger.h>

#include <benchmark/benchmark.h>

#include <QtCore/QDateTime>
#include <QtCore/QStringList>

#include <array>
#include <memory>

using tvl::Logger;
using tvl::updater::UpdaterLogCollector;

namespace {

constexpr int MaxLines = 10000;

// A realistic mix: mostly levels 0 to 3, a warning in twenty-five, an error in fifty.
constexpr std::array<int, 50> levelPattern()
{
    std::array<int, 50> levels{};
    for (int i = 0; i < 50; ++i)
        levels[i] = i == 49 ? 5 : i % 25 == 12 ? 4 : i % 4;
    return levels;
}
constexpr std::array<int, 50> Levels = levelPattern();

struct Records
{
    QStringList messages{
        QStringLiteral("Downloading chunk 1432 of 9000 from the content server"),
        QStringLiteral("Verified file data/levels/level07.pak"),
        QStringLiteral("Plugin updater_ui: window shown"),
        QStringLiteral("Connection to the content server was reset, retrying in 2 s"),
        QStringLiteral("Progress 45.2 %"),
    };
    const QString file = QStringLiteral("libupdater/UpdaterPluginsManager");
    const QString function = QStringLiteral("loadPlugin");
    const QString thread = QStringLiteral("main");
    const QDateTime time = QDateTime::currentDateTime();

    void write(UpdaterLogCollector& collector, int i) const
    {
        collector.write(messages.at(i % messages.size()), file, function, thread, 88,
                        Logger::Level(Levels[std::size_t(i % 50)]), time, 4711);
    }
};

// write() called directly, as the logger's output thread would, into a fresh collector: the
// first 10,000 records fill it, the rest go through eviction. 100,000 records hold 2,000
// errors, well below the 10,000 after which only errors are kept.
void BM_Write(benchmark::State& state)
{
    const Records records;
    const int count = int(state.range(0));
    for (auto _ : state) {
        state.PauseTiming();
        auto collector = std::make_unique<UpdaterLogCollector>(MaxLines);
        state.ResumeTiming();
        for (int i = 0; i < count; ++i)
            records.write(*collector, i);
        state.PauseTiming();
        collector.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(BM_Write)->Arg(100000)->Unit(benchmark::kMillisecond);

// The same with a receiver connected to newLog in this thread, as a log view would be.
void BM_WriteConnected(benchmark::State& state)
{
    const Records records;
    const int count = int(state.range(0));
    qint64 received = 0;
    for (auto _ : state) {
        state.PauseTiming();
        auto collector = std::make_unique<UpdaterLogCollector>(MaxLines);
        QObject::connect(collector.get(), &UpdaterLogCollector::newLog,
                         [&received](int, const QString&) { ++received; });
        state.ResumeTiming();
        for (int i = 0; i < count; ++i)
            records.write(*collector, i);
        state.PauseTiming();
        collector.reset();
        state.ResumeTiming();
    }
    benchmark::DoNotOptimize(received);
    state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(BM_WriteConnected)->Arg(100000)->Unit(benchmark::kMillisecond);

// lines() on a collector that holds its full 10,000 lines and more (just before a trim).
void BM_Lines(benchmark::State& state)
{
    const Records records;
    UpdaterLogCollector collector(MaxLines);
    for (int i = 0; i < MaxLines + 1; ++i)
        records.write(collector, i);
    std::size_t lines = 0;
    for (auto _ : state) {
        const std::list<UpdaterLogCollector::Line> copy = collector.lines();
        lines = copy.size();
        benchmark::DoNotOptimize(lines);
    }
    state.counters["lines"] = double(lines);
    state.SetItemsProcessed(state.iterations() * qint64(lines));
}
BENCHMARK(BM_Lines)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
