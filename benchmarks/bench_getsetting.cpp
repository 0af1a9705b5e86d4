// UpdaterPluginApi::getSetting() as plugins call it: through the API of a real plugin manager
// (no plugins loaded) to a settings manager with the launcher's four providers: runtime values
// in memory, this process's command line, an INI file of saved preferences and a configuration
// script evaluated from a file. Each case runs, batch by batch in turn, beside a plain
// QVariantMap lookup of the same key, so that machine noise hits both alike.
//
// Reported: "Time" is one getSetting() call; the counter "map_ns" is one QVariantMap lookup
// and "ratio" the quotient of the two. "CPU" is the whole batch of both.
#include <libupdater/CommandlineSettingsProvider.h>
#include <libupdater/IciFunctions.h>
#include <libupdater/IciSettingsProvider.h>
#include <libupdater/IniSettingsProvider.h>
#include <libupdater/MemorySettingsProvider.h>
#include <libupdater/UpdaterPluginApi.h>
#include <libupdater/UpdaterPluginsManager.h>
#include <libupdater/UpdaterSettingsManager.h>

#include <basix/ICISettings.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>

#include "BenchmarkSupport.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <memory>

using namespace tvl::updater;

namespace {

// Calls timed together; the clock's own cost stays well below 1 % of a batch.
constexpr int Batch = 100;
constexpr benchmark::IterationCount Batches = 4000;

// Like the launcher's default configuration.
const char Script[] = R"lua(
i18n = { lang = "de", country = "DE", default_lang = "en" }
plugins = { disable = {}, enable = {} }
update = { url = "https://cdn.tarvel.com/launcher/", check_interval_minutes = 60 }
welcome = { en = "Welcome to the Tarvel launcher", fr = "Bienvenue dans le lanceur Tarvel" }
dev_mode = false
game = { arguments = command_line_args("game%-(.*)", "--%(name)=%(value)") }
print("configuration read from " .. root .. " on " .. sys.osname)
)lua";

const char Preferences[] = "[display]\nwidth=1024\nheight=768\n[launcher]\nlast_tab=news\nremember=true\n";

class Stack
{
public:
    Stack()
    {
        write(QStringLiteral("updater.lua"), Script);
        write(QStringLiteral("updater.ini"), Preferences);

        auto* settings = new UpdaterSettingsManager;
        auto* runtime = new MemorySettingsProvider(settings);
        runtime->setSetting(QStringLiteral("sys.osname"), QStringLiteral("Linux"));
        runtime->setSetting(QStringLiteral("updater.version"), QStringLiteral("3.11.1"));
        runtime->setSetting(QStringLiteral("updater.revision"), QStringLiteral("4e83d23"));
        runtime->setSetting(QStringLiteral("game.display.width"), 1920);
        runtime->setSetting(QStringLiteral("game.display.height"), 1080);
        settings->addProvider(runtime);
        settings->addProvider(new CommandlineSettingsProvider(settings));
        settings->addProvider(new IniSettingsProvider(m_dir.filePath(QStringLiteral("updater.ini")),
                                                      ISettingsProvider::PersistentProvider, settings));
        api()->addObject(settings);

        tvl::ICISettings* engine = api()->loadSettings(m_dir.filePath(QStringLiteral("updater.lua")), m_dir.path());
        registerIciFunctions(engine);
        auto* script = new IciSettingsProvider(engine, settings);
        engine->setParent(script);
        if (!script->evaluate())
            std::fprintf(stderr, "the configuration script failed: %s\n", qPrintable(engine->errorString()));
        settings->addProvider(script);

        // The same settings in one flat map, for the baseline.
        for (const QString& key : settings->keys(AllScopes))
            m_flat.insert(key, settings->getSetting(key, AllScopes));
        m_flat.insert(QStringLiteral("game.display.width"), 1920);
    }

    UpdaterPluginApi* api() const { return m_host.api(); }
    const QVariantMap& flat() const { return m_flat; }

private:
    void write(const QString& name, const char* text)
    {
        QFile file(m_dir.filePath(name));
        if (!file.open(QIODevice::WriteOnly) || file.write(text) < 0)
            std::fprintf(stderr, "cannot write %s\n", qPrintable(file.fileName()));
    }

    QTemporaryDir m_dir;
    UpdaterPluginsManager m_host;
    QVariantMap m_flat;
};

Stack* stack = nullptr;

/// getSetting(key, default, attributes) against flat().value(flatKey), in alternating batches.
void compare(benchmark::State& state, const QString& key, SettingsAttributes attributes, const QString& flatKey,
             const QVariant& expected)
{
    using Clock = std::chrono::steady_clock;
    const UpdaterPluginApi* api = stack->api();
    const QVariantMap& map = stack->flat();
    if (api->getSetting(key, QVariant(), attributes) != expected || map.value(flatKey) != expected) {
        state.SkipWithError("the stack does not give the expected value");
        return;
    }

    Clock::duration apiTime{};
    Clock::duration mapTime{};
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        for (int i = 0; i < Batch; ++i)
            benchmark::DoNotOptimize(api->getSetting(key, QVariant(), attributes));
        const Clock::time_point middle = Clock::now();
        for (int i = 0; i < Batch; ++i)
            benchmark::DoNotOptimize(map.value(flatKey));
        const Clock::time_point end = Clock::now();
        apiTime += middle - start;
        mapTime += end - middle;
        state.SetIterationTime(std::chrono::duration<double>(middle - start).count() / Batch);
    }
    const double calls = double(state.iterations()) * Batch;
    state.counters["map_ns"] = std::chrono::duration<double, std::nano>(mapTime).count() / calls;
    state.counters["ratio"] = double(apiTime.count()) / double(mapTime.count());
}

// Target: under 300 ns.
void BM_GetSettingRuntimeHit(benchmark::State& state)
{
    const QString key = QStringLiteral("game.display.width");
    compare(state, key, AllScopes, key, 1920);
}
BENCHMARK(BM_GetSettingRuntimeHit)->Iterations(Batches)->UseManualTime();

// Target: under 1.5 µs. Memory, command line and INI file have nothing under this key.
void BM_GetSettingScriptOnly(benchmark::State& state)
{
    const QString key = QStringLiteral("update.url");
    compare(state, key, AllScopes, key, QStringLiteral("https://cdn.tarvel.com/launcher/"));
}
BENCHMARK(BM_GetSettingScriptOnly)->Iterations(Batches)->UseManualTime();

// Target: under 5 µs. "de" with "DE" finds nothing; the default language "en" does: three
// language settings and three keys, each asked of the whole stack.
void BM_GetSettingTranslatedFallback(benchmark::State& state)
{
    compare(state, QStringLiteral("welcome"), AllScopes | TranslatedSetting, QStringLiteral("welcome.en"),
            QStringLiteral("Welcome to the Tarvel launcher"));
}
BENCHMARK(BM_GetSettingTranslatedFallback)->Iterations(Batches)->UseManualTime();

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    int result = 0;
    {
        Stack settings;
        stack = &settings;
        result = runBenchmarks(argc, argv);
        stack = nullptr;
    }
    // The API hands what was registered with it to deleteLater().
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return result;
}
