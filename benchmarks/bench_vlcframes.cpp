#include <libupdater/vlc/VlcInstance.h>
#include <libupdater/vlc/VlcPlayer.h>
#include <libupdater/vlc/VlcVideoGraphicsItem.h>

#include "BenchmarkSupport.h"

#include <benchmark/benchmark.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QEventLoop>
#include <QtCore/QTimer>
#include <QtGui/QImage>
#include <QtGui/QPainter>
#include <QtWidgets/QApplication>
#include <QtWidgets/QGraphicsScene>
#include <QtWidgets/QGraphicsView>

#include <atomic>
#include <ctime>
#include <dlfcn.h>
#include <sys/resource.h>

using tvl::updater::VlcInstance;
using tvl::updater::VlcPlayer;
using tvl::updater::VlcVideoGraphicsItem;

namespace {

const QSize FrameSize(1280, 720);

qint64 threadCpuNanoseconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return qint64(now.tv_sec) * 1000000000 + now.tv_nsec;
}

qint64 processCpuNanoseconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return (qint64(usage.ru_utime.tv_sec) + usage.ru_stime.tv_sec) * 1000000000
        + (qint64(usage.ru_utime.tv_usec) + usage.ru_stime.tv_usec) * 1000;
}

/// The item's own callbacks, with the CPU time that libvlc's video thread spends in them.
struct CallbackTimes
{
    std::atomic<qint64> lockNanoseconds{0};
    std::atomic<qint64> unlockNanoseconds{0};
    std::atomic<int> frames{0};
    std::atomic<qint64> firstFrame{0}; ///< nanoseconds on `clock`
    std::atomic<qint64> lastFrame{0};
    QElapsedTimer clock;
    VlcVideoGraphicsItem* item = nullptr;
};

void* timedLock(void* opaque, void** planes)
{
    auto* times = static_cast<CallbackTimes*>(opaque);
    const qint64 start = threadCpuNanoseconds();
    void* picture = tvl::updater::lock(times->item, planes);
    times->lockNanoseconds += threadCpuNanoseconds() - start;
    return picture;
}

void timedUnlock(void* opaque, void* picture, void* const* planes)
{
    auto* times = static_cast<CallbackTimes*>(opaque);
    const qint64 start = threadCpuNanoseconds();
    tvl::updater::unlock(times->item, picture, planes);
    times->unlockNanoseconds += threadCpuNanoseconds() - start;
    const qint64 now = times->clock.nsecsElapsed();
    if (times->frames++ == 0)
        times->firstFrame = now;
    times->lastFrame = now;
}

void timedDisplay(void* opaque, void* picture)
{
    tvl::updater::display(static_cast<CallbackTimes*>(opaque)->item, picture);
}

/// A view that times its repaints on the GUI thread: the scene's traversal and the item's paint.
class TimedView : public QGraphicsView
{
public:
    explicit TimedView(QGraphicsScene* scene)
        : QGraphicsView(scene)
    {
        setFrameShape(QFrame::NoFrame);
        setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        setSceneRect(QRectF(QPointF(0, 0), FrameSize));
        resize(FrameSize);
    }

    qint64 paintNanoseconds = 0;
    qint64 paints = 0;

protected:
    void paintEvent(QPaintEvent* event) override
    {
        const qint64 start = threadCpuNanoseconds();
        QGraphicsView::paintEvent(event);
        paintNanoseconds += threadCpuNanoseconds() - start;
        ++paints;
    }
};

VlcInstance* vlcInstance()
{
    static VlcInstance* instance = new VlcInstance(qApp);
    return instance;
}

using SetRate = int (*)(libvlc_media_player_t*, float);

/// libvlc_media_player_set_rate, which the player does not use, from the libvlc already loaded.
SetRate setRateFunction()
{
    void* handle = dlopen("libvlc.so.5", RTLD_LAZY | RTLD_NOLOAD);
    return handle ? reinterpret_cast<SetRate>(dlsym(handle, "libvlc_media_player_set_rate")) : nullptr;
}

/**
 * Plays the 4 s, 25 frames/s, 1280x720 clip into an item of the same size, once per
 * iteration, at the playback rate given as the argument (1: its own pace; 32: libvlc's
 * highest rate, as fast as it decodes). libvlc's video thread runs the item's lock and unlock
 * through timing wrappers; a 1280x720 view of the scene times its repaints on the GUI thread.
 */
void BM_VlcFrames(benchmark::State& state)
{
    VlcInstance* instance = vlcInstance();
    if (!instance->isLoaded()) {
        state.SkipWithError("libvlc could not be loaded");
        return;
    }
    const float rate = float(state.range(0));
    const SetRate setRate = setRateFunction();
    if (rate != 1 && !setRate) {
        state.SkipWithError("libvlc_media_player_set_rate not found");
        return;
    }

    qint64 frames = 0;
    qint64 paints = 0;
    qint64 lockNanoseconds = 0;
    qint64 unlockNanoseconds = 0;
    qint64 paintNanoseconds = 0;
    qint64 processNanoseconds = 0;
    qint64 frameIntervals = 0;
    qint64 frameSpanNanoseconds = 0;

    for (auto _ : state) {
        VlcPlayer player(instance);
        QGraphicsScene scene;
        auto* item = static_cast<VlcVideoGraphicsItem*>(player.createGraphicsItem(FrameSize));
        scene.addItem(item);
        CallbackTimes times;
        times.item = item;
        instance->libvlc_video_set_callbacks(player.vlc(), timedLock, timedUnlock, timedDisplay, &times);

        TimedView view(&scene);
        view.show();
        QCoreApplication::processEvents();
        view.paints = 0;
        view.paintNanoseconds = 0;

        QEventLoop loop;
        QObject::connect(&player, &VlcPlayer::stopped, &loop, &QEventLoop::quit);
        QTimer::singleShot(30000, &loop, &QEventLoop::quit);

        player.open(QUrl::fromLocalFile(QStringLiteral(VLC_BENCH_VIDEO)));
        if (rate != 1)
            setRate(player.vlc(), rate);
        const qint64 processStart = processCpuNanoseconds();
        times.clock.start();
        player.play();
        loop.exec();
        processNanoseconds += processCpuNanoseconds() - processStart;
        player.stop();
        QCoreApplication::processEvents();

        frames += times.frames;
        if (times.frames > 1) {
            frameIntervals += times.frames - 1;
            frameSpanNanoseconds += times.lastFrame - times.firstFrame;
        }
        paints += view.paints;
        paintNanoseconds += view.paintNanoseconds;
        lockNanoseconds += times.lockNanoseconds;
        unlockNanoseconds += times.unlockNanoseconds;
        delete item;
    }

    const double perFrame = frames > 0 ? 1.0 / double(frames) : 0.0;
    state.counters["frames"] = double(frames) / double(state.iterations());
    // From the first frame to the last: libvlc's start-up and the end's detection left out.
    state.counters["frames_per_s"] =
        frameSpanNanoseconds > 0 ? double(frameIntervals) * 1e9 / double(frameSpanNanoseconds) : 0.0;
    state.counters["lock_us"] = double(lockNanoseconds) * perFrame / 1000.0;
    state.counters["unlock_us"] = double(unlockNanoseconds) * perFrame / 1000.0;
    state.counters["paint_us"] = paints > 0 ? double(paintNanoseconds) / double(paints) / 1000.0 : 0.0;
    state.counters["paints_per_frame"] = double(paints) * perFrame;
    state.counters["process_cpu_us_per_frame"] = double(processNanoseconds) * perFrame / 1000.0;
}
BENCHMARK(BM_VlcFrames)->Arg(1)->Arg(32)->Iterations(3)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    return runBenchmarks(argc, argv);
}
