// Cost of an edit of the launcher's configuration script on disk until the change is announced:
// the file is written (in place, or replaced by rename as editors and QSaveFile do), the
// watcher notices it, the script of 200 settings is reloaded and evaluated, all values are
// compared with the previous ones, and the provider's (or the settings manager's)
// settingChanged arrives in the event loop.
#include <libupdater/IciFunctions.h>
#include <libupdater/IciSettingsProvider.h>
#include <libupdater/MemorySettingsProvider.h>
#include <libupdater/UpdaterSettingsManager.h>

#include <basix/ICISettings.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QEventLoop>
#include <QtCore/QFile>
#include <QtCore/QSaveFile>
#include <QtCore/QTemporaryDir>
#include <QtCore/QTimer>

#include "BenchmarkSupport.h"

#include <benchmark/benchmark.h>

using namespace tvl::updater;

namespace {

// 200 settings: 100 plain values of the usual kinds and 25 tables of 4 values each; `edited`
// is the value of the one setting that differs between two saves.
QByteArray configuration(int edited)
{
    QByteArray text = "-- launcher configuration\n";
    for (int i = 0; i < 100; ++i) {
        switch (i % 4) {
        case 0: text += "option" + QByteArray::number(i) + " = " + QByteArray::number(i * 7) + "\n"; break;
        case 1: text += "option" + QByteArray::number(i) + " = \"value " + QByteArray::number(i) + "\"\n"; break;
        case 2: text += "option" + QByteArray::number(i) + " = " + (i % 3 ? "true" : "false") + "\n"; break;
        default: text += "option" + QByteArray::number(i) + " = { \"a\", \"b\", \"c\" }\n"; break;
        }
    }
    for (int i = 0; i < 25; ++i) {
        text += "group" + QByteArray::number(i) + " = { url = \"https://example.com/" + QByteArray::number(i)
            + "\", timeout = " + QByteArray::number(30 + i) + ", retries = 3, enabled = true }\n";
    }
    text += "edited = " + QByteArray::number(edited) + "\n";
    text += "derived = compare_versions(\"1.2\", \"1.10\")\n";
    return text;
}

bool writeFile(const QString& path, const QByteArray& text, bool byRename)
{
    if (byRename) {
        QSaveFile file(path);
        return file.open(QIODevice::WriteOnly) && file.write(text) == text.size() && file.commit();
    }
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(text) == text.size();
}

// Edits the file and runs the event loop until `sender` emits `signal`.
template <typename Sender, typename Signal>
void measureReload(benchmark::State& state, const QString& path, Sender* sender, Signal signal)
{
    const bool byRename = state.range(0) != 0;
    QEventLoop loop;
    QTimer timeout;
    timeout.setSingleShot(true);
    QObject::connect(&timeout, &QTimer::timeout, &loop, [&loop] { loop.exit(1); });
    QObject::connect(sender, signal, &loop, [&loop] { loop.exit(0); });

    int edited = 0;
    for (auto _ : state) {
        ++edited;
        if (!writeFile(path, configuration(edited), byRename)) {
            state.SkipWithError("cannot write the configuration");
            break;
        }
        timeout.start(5000);
        if (loop.exec() != 0) {
            state.SkipWithError("no settingChanged within 5 s");
            break;
        }
        timeout.stop();
    }
    state.SetLabel(byRename ? "replaced by rename" : "written in place");
}

/// The launcher's configuration on disk, read by a script provider with the built-in functions.
struct WatchedConfiguration
{
    QTemporaryDir directory;
    const QString path = directory.filePath(QStringLiteral("launcher.cfg"));
    const bool written = writeFile(path, configuration(0), false);
    tvl::ICISettings settings{path};
    const bool registered = (registerIciFunctions(&settings), true);
    IciSettingsProvider provider{&settings, nullptr};
};

void BM_ProviderReload(benchmark::State& state)
{
    WatchedConfiguration configuration;
    if (!configuration.provider.evaluate() || configuration.provider.keys().size() < 200) {
        state.SkipWithError("the configuration does not evaluate");
        return;
    }
    measureReload(state, configuration.path, &configuration.provider, &ISettingsProvider::settingChanged);
}
BENCHMARK(BM_ProviderReload)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ManagerReload(benchmark::State& state)
{
    WatchedConfiguration configuration;
    MemorySettingsProvider runtime(nullptr);
    UpdaterSettingsManager manager;
    manager.addProvider(&runtime);
    manager.addProvider(&configuration.provider);
    if (!configuration.provider.evaluate()) {
        state.SkipWithError("the configuration does not evaluate");
        return;
    }
    measureReload(state, configuration.path, &manager, &ISettingsManager::settingChanged);
}
BENCHMARK(BM_ManagerReload)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    return runBenchmarks(argc, argv);
}
