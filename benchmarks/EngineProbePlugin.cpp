// A plugin for bench_engine, loaded into a real launcher beside the settings, network and engine
// plugins: it measures how late the main thread's event loop serves a 5 ms timer, how long the
// engine's install or update of the project takes, and the process's peak memory, prints them as
// one line of JSON on standard output and stops the launcher. Without a project to follow it
// stays idle for the "idle_ms" of its descriptor's data.
#include <libupdater/IUpdateEngine.h>
#include <libupdater/UpdaterPlugin.h>
#include <libupdater/UpdaterPluginApi.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QTimer>

#include <algorithm>
#include <cstdio>
#include <vector>

using namespace tvl::updater;

class EngineProbePlugin : public UpdaterPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID UPDATER_PLUGIN_IID)

public:
    bool init() override
    {
        m_tick.setTimerType(Qt::PreciseTimer);
        m_tick.setInterval(TickMs);
        connect(&m_tick, &QTimer::timeout, this, [this] {
            const qint64 now = m_clock.nsecsElapsed();
            if (m_lastTick > 0)
                m_lateness.push_back(double(now - m_lastTick) / 1e6 - TickMs);
            m_lastTick = now;
        });
        m_clock.start();
        const int idle = extraData().toMap().value(QStringLiteral("idle_ms")).toInt();
        if (idle > 0) {
            m_tick.start();
            QTimer::singleShot(idle, this, [this] { finish(true, 0); });
        }
        return true;
    }

    void objectAdded(QObject* object) override
    {
        auto* engine = qobject_cast<IUpdateEngine*>(object);
        if (!engine || m_engine)
            return;
        m_engine = engine;
        connect(engine, qOverload<const QString&, IUpdateEngine::UpdateState>(&IUpdateEngine::stateChanged), this,
                [this](const QString&, IUpdateEngine::UpdateState state) {
                    if (state.testFlag(IUpdateEngine::Updating) && !m_tick.isActive()) {
                        m_operation.start();
                        m_tick.start();
                    }
                });
        connect(engine, &IUpdateEngine::projectUpdated, this, [this](const tvl::vantor::UpdateResultPtr& result) {
            finish(result && result->success, m_operation.isValid() ? double(m_operation.nsecsElapsed()) / 1e6 : 0);
        });
    }

private:
    static constexpr int TickMs = 5;

    void finish(bool success, double operationMs)
    {
        if (m_finished)
            return;
        m_finished = true;
        m_tick.stop();
        std::vector<double> lateness = m_lateness;
        std::sort(lateness.begin(), lateness.end());
        const auto percentile = [&lateness](double p) {
            return lateness.empty() ? 0.0 : lateness[std::min(lateness.size() - 1, size_t(p * double(lateness.size())))];
        };
        QJsonObject line{{QStringLiteral("success"), success},
                         {QStringLiteral("operation_ms"), operationMs},
                         {QStringLiteral("ticks"), int(lateness.size())},
                         {QStringLiteral("lateness_p50_ms"), percentile(0.50)},
                         {QStringLiteral("lateness_p99_ms"), percentile(0.99)},
                         {QStringLiteral("peak_rss_kib"), peakRssKiB()}};
        std::printf("PROBE %s\n", QJsonDocument(line).toJson(QJsonDocument::Compact).constData());
        std::fflush(stdout);
        api()->exit(success ? 0 : 1);
    }

    static double peakRssKiB()
    {
        QFile status(QStringLiteral("/proc/self/status"));
        if (!status.open(QIODevice::ReadOnly))
            return 0;
        for (const QByteArray& line : status.readAll().split('\n')) {
            if (line.startsWith("VmHWM:"))
                return line.mid(6).trimmed().split(' ').value(0).toDouble();
        }
        return 0;
    }

    QPointer<IUpdateEngine> m_engine;
    QTimer m_tick;
    QElapsedTimer m_clock;
    QElapsedTimer m_operation;
    qint64 m_lastTick = 0;
    std::vector<double> m_lateness;
    bool m_finished = false;
};

#include "EngineProbePlugin.moc"
