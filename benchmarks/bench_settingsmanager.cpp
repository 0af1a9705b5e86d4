// Cost of the settings stack: a write deep into a large runtime tree (nested maps are changed
// where they are, so the size of the tree should not matter), a read that falls through every
// layer to the last one, and the trusted-URL check of a URL-valued read.
#include <libupdater/MemorySettingsProvider.h>
#include <libupdater/UpdaterSettingsManager.h>

#include <QtCore/QCoreApplication>

#include "BenchmarkSupport.h"

#include <benchmark/benchmark.h>

using namespace tvl::updater;

namespace {

// `entries` siblings beside the written key at each of three levels.
void fill(MemorySettingsProvider& provider, int entries)
{
    for (int i = 0; i < entries; ++i) {
        const QString name = QStringLiteral("k%1").arg(i);
        provider.setSetting(name, i);
        provider.setSetting(QStringLiteral("game.") + name, i);
        provider.setSetting(QStringLiteral("game.display.") + name, i);
    }
}

void BM_MemoryDeepWrite(benchmark::State& state)
{
    MemorySettingsProvider provider(nullptr);
    fill(provider, int(state.range(0)));
    const QString key = QStringLiteral("game.display.width");
    int value = 0;
    for (auto _ : state)
        provider.setSetting(key, ++value);
}
BENCHMARK(BM_MemoryDeepWrite)->Arg(10)->Arg(1000)->Arg(100000);

void BM_MemoryDeepRead(benchmark::State& state)
{
    MemorySettingsProvider provider(nullptr);
    fill(provider, int(state.range(0)));
    provider.setSetting(QStringLiteral("game.display.width"), 800);
    const QString key = QStringLiteral("game.display.width");
    for (auto _ : state)
        benchmark::DoNotOptimize(provider.getSetting(key));
}
BENCHMARK(BM_MemoryDeepRead)->Arg(10)->Arg(100000);

void BM_ManagerReadFromLastLayer(benchmark::State& state)
{
    MemorySettingsProvider runtime(nullptr);
    MemorySettingsProvider commandline(nullptr, ISettingsProvider::CommandlineProvider);
    MemorySettingsProvider persistent(nullptr, ISettingsProvider::PersistentProvider);
    MemorySettingsProvider script(nullptr, ISettingsProvider::IciProvider);
    for (MemorySettingsProvider* provider : {&runtime, &commandline, &persistent, &script})
        fill(*provider, 100);
    script.setSetting(QStringLiteral("game.display.width"), 800);

    UpdaterSettingsManager manager;
    for (MemorySettingsProvider* provider : {&script, &persistent, &commandline, &runtime})
        manager.addProvider(provider);
    const QString key = QStringLiteral("game.display.width");
    for (auto _ : state)
        benchmark::DoNotOptimize(manager.getSetting(key, AllScopes));
}
BENCHMARK(BM_ManagerReadFromLastLayer);

void BM_CheckUrlIsTrusted(benchmark::State& state)
{
    const QUrl url(QStringLiteral("https://cdn.eu.tarvel.com/patches/3.11/manifest.json"));
    for (auto _ : state)
        benchmark::DoNotOptimize(check_url_is_trusted(url));
}
BENCHMARK(BM_CheckUrlIsTrusted);

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    return runBenchmarks(argc, argv);
}
