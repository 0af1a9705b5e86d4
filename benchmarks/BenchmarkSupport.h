#pragma once

#include <basix/AbstractLoggerOutput.h>
#include <basix/Logger.h>

#include <benchmark/benchmark.h>

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QProcessEnvironment>

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

/**
 * The counters of a responsiveness comparison from the probe plugin's figures (EngineProbePlugin.cpp):
 * the main thread's lateness during an operation against the same launcher idle for as long.
 */
inline void reportLateness(benchmark::State& state, const QJsonObject& busy, const QJsonObject& idle)
{
    const double busyP99 = busy.value(QStringLiteral("lateness_p99_ms")).toDouble();
    const double idleP99 = idle.value(QStringLiteral("lateness_p99_ms")).toDouble();
    state.counters["install_p99_ms"] = busyP99;
    state.counters["idle_p99_ms"] = idleP99;
    state.counters["install_p50_ms"] = busy.value(QStringLiteral("lateness_p50_ms")).toDouble();
    state.counters["difference_ms"] = busyP99 - idleP99;
    state.counters["ticks"] = busy.value(QStringLiteral("ticks")).toDouble();
    state.SetIterationTime(busy.value(QStringLiteral("operation_ms")).toDouble() / 1000.0);
}

/// The environment of a launcher run by a benchmark: its preferences, log and games under `home`.
inline QProcessEnvironment launcherEnvironment(const QString& home)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("HOME"), home);
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/config"));
    environment.insert(QStringLiteral("XDG_DATA_HOME"), home + QStringLiteral("/data"));
    return environment;
}

/// The figures a probe plugin printed as "PROBE {json}" on the launcher's standard output; empty if none.
inline QJsonObject probeFigures(const QByteArray& output)
{
    for (const QByteArray& line : output.split('\n')) {
        if (line.startsWith("PROBE "))
            return QJsonDocument::fromJson(line.mid(6)).object();
    }
    return QJsonObject();
}
