#include <basix/AbstractLoggerOutput.h>
#include <basix/Logger.h>

#include "BenchmarkSupport.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>

using tvl::Logger;

namespace {

// Takes records as fast as the logger can hand them over.
DiscardingOutput* g_output = nullptr;

constexpr int Batch = 1000;

// End to end: from log() through the queue to the output, the final flush included.
void BM_Throughput(benchmark::State& state)
{
    const QString message = QStringLiteral("Downloading chunk");
    const QString file = QStringLiteral("libupdater/Downloader");
    const QString function = QStringLiteral("fetch");
    const int count = int(state.range(0));
    const qint64 before = g_output->records.load();
    for (auto _ : state) {
        for (int i = 0; i < count; ++i)
            Logger::instance()->log(message, file, function, 42, Logger::Info);
        Logger::instance()->flush();
    }
    if (g_output->records.load() - before != state.iterations() * count)
        state.SkipWithError("records lost");
    state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(BM_Throughput)->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ThroughputTvlLog(benchmark::State& state)
{
    const int count = int(state.range(0));
    for (auto _ : state) {
        for (int i = 0; i < count; ++i)
            TVL_LOG(Logger::Info) << "Downloading chunk" << i;
        Logger::instance()->flush();
    }
    state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(BM_ThroughputTvlLog)->Arg(100000)->Unit(benchmark::kMillisecond)->UseRealTime();

// What a log() call costs its caller: only the calls are timed, the queue is drained outside.
template <typename LogOnce>
void measureCaller(benchmark::State& state, LogOnce logOnce)
{
    double seconds = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < Batch; ++i)
            logOnce(i);
        const auto stop = std::chrono::steady_clock::now();
        const double elapsed = std::chrono::duration<double>(stop - start).count();
        state.SetIterationTime(elapsed);
        seconds += elapsed;
        if (state.thread_index() == 0)
            Logger::instance()->flush();
    }
    state.SetItemsProcessed(state.iterations() * Batch);
    state.counters["ns_per_log"] = benchmark::Counter(
        seconds * 1e9 / double(state.iterations() * Batch), benchmark::Counter::kAvgThreads);
}

void BM_CallerQString(benchmark::State& state)
{
    const QString message = QStringLiteral("Downloading chunk");
    const QString file = QStringLiteral("libupdater/Downloader");
    const QString function = QStringLiteral("fetch");
    measureCaller(state, [&](int) {
        Logger::instance()->log(message, file, function, 42, Logger::Info);
    });
}
BENCHMARK(BM_CallerQString)->UseManualTime();
BENCHMARK(BM_CallerQString)->UseManualTime()->Threads(4);

void BM_CallerLatin1(benchmark::State& state)
{
    const QString message = QStringLiteral("Downloading chunk");
    measureCaller(state, [&](int) {
        Logger::instance()->log(message, QLatin1String("libupdater/Downloader"),
                                QLatin1String("fetch"), 42, Logger::Info);
    });
}
BENCHMARK(BM_CallerLatin1)->UseManualTime();

// TVL_LOG as used in the code: the message is built with << as well.
void BM_CallerTvlLog(benchmark::State& state)
{
    measureCaller(state, [](int i) { TVL_LOG(Logger::Info) << "Downloading chunk" << i; });
}
BENCHMARK(BM_CallerTvlLog)->UseManualTime();

void BM_DisabledTvlLog(benchmark::State& state)
{
    Logger::instance()->setMinimumLevel(Logger::Warning);
    int i = 0;
    for (auto _ : state) {
        TVL_LOG(Logger::Debug) << "Downloading chunk" << ++i;
        benchmark::ClobberMemory();
    }
    Logger::instance()->setMinimumLevel(Logger::Trace);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_DisabledTvlLog);

} // namespace

int main(int argc, char** argv)
{
    DiscardingOutput output;
    g_output = &output;
    Logger::instance()->addOutput(&output);
    const int result = runBenchmarks(argc, argv);
    Logger::instance()->removeOutput(&output);
    return result;
}
