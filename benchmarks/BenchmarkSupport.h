#pragma once

#include <basix/AbstractLoggerOutput.h>
#include <basix/Logger.h>

#include <benchmark/benchmark.h>

#include <atomic>

/// A logger output that only counts what reaches it: the logger's cost without the cost of writing.
class DiscardingOutput : public tvl::AbstractLoggerOutput
{
public:
    void writeLogHeader() override {}
    void write(const QString&, const QString&, const QString&, const QString&, int, tvl::Logger::Level,
               const QDateTime&, int) override
    {
        records.fetch_add(1, std::memory_order_relaxed);
    }

    std::atomic<qint64> records{0};
};

/// Runs the benchmarks selected by Google Benchmark's command-line flags; 1 for flags it does not know.
inline int runBenchmarks(int& argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
