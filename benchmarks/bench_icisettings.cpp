// Cost of reading a plugin descriptor: a new ICISettings over the file, one evaluation and
// every value read back, as the plugin host does for each descriptor it finds.
#include <basix/ICISettings.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>

#include "BenchmarkSupport.h"

#include <benchmark/benchmark.h>

namespace {

const QByteArray descriptor = R"(-- network plugin
name = "network"
autoload = true
mandatory = false
needGUI = false
unsafe = false
depends = { "core", "settings" }
soft_depends = { "notifications" }
required_by = { "updater" }
replace = "legacy-network"
data = { timeout = 30, proxy = { host = "proxy.tarvel.lan", port = 3128 }, retries = 3 }
)";

const char* const keys[] = {"name",     "autoload",    "mandatory", "needGUI", "unsafe", "depends",
                            "soft_depends", "required_by", "replace", "data",    "data.proxy.port"};

void readDescriptor(tvl::ICISettings& settings, benchmark::State& state)
{
    if (!settings.evaluate()) {
        state.SkipWithError(settings.errorString().toUtf8().constData());
        return;
    }
    for (const char* key : keys)
        benchmark::DoNotOptimize(settings.value(QString::fromLatin1(key), QVariant()));
}

void BM_DescriptorFromFile(benchmark::State& state)
{
    QTemporaryDir directory;
    const QString path = directory.filePath(QStringLiteral("network.updaterplugin"));
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write(descriptor);
    file.close();
    for (auto _ : state) {
        tvl::ICISettings settings(path);
        readDescriptor(settings, state);
    }
}
BENCHMARK(BM_DescriptorFromFile)->Unit(benchmark::kMicrosecond);

void BM_DescriptorFromMemory(benchmark::State& state)
{
    for (auto _ : state) {
        tvl::ICISettings settings(QStringLiteral("/plugins/network.updaterplugin"), descriptor);
        readDescriptor(settings, state);
    }
}
BENCHMARK(BM_DescriptorFromMemory)->Unit(benchmark::kMicrosecond);

void BM_ReevaluateSameObject(benchmark::State& state)
{
    tvl::ICISettings settings(QStringLiteral("/plugins/network.updaterplugin"), descriptor);
    for (auto _ : state)
        readDescriptor(settings, state);
}
BENCHMARK(BM_ReevaluateSameObject)->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    return runBenchmarks(argc, argv);
}
