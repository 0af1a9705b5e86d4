#include "SignalWatcher.h"

#include <basix/Logger.h>

#include <libupdater/Updater.h>

#include <QtCore/QSocketNotifier>

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <memory>
#include <mutex>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int WatchedSignals[] = {SIGINT, SIGTERM, SIGHUP};
// How long the log may take to reach its outputs when the process ends at once.
constexpr std::chrono::milliseconds FlushTime(500);
// Written to the watchdog's pipe to make it return.
constexpr unsigned char QuitWatchdog = 0;

// The handler writes each signal to both: the main thread reads the first through its event loop,
// the watchdog thread the second. Only async-signal-safe calls are allowed in the handler.
int mainPipe[2] = {-1, -1};
int watchdogPipe[2] = {-1, -1};

void onSignal(int signal)
{
    const int savedErrno = errno;
    const unsigned char number = static_cast<unsigned char>(signal);
    [[maybe_unused]] ssize_t written = ::write(mainPipe[1], &number, 1);
    written = ::write(watchdogPipe[1], &number, 1);
    errno = savedErrno;
}

void closePair(int (&pair)[2])
{
    for (int& fd : pair) {
        if (fd >= 0)
            ::close(fd);
        fd = -1;
    }
}

/// Reads one signal number from the watchdog's pipe, waiting at most `timeoutMs` (-1: forever);
/// -1 when none came.
int nextSignal(int timeoutMs)
{
    pollfd entry{watchdogPipe[0], POLLIN, 0};
    const int ready = ::poll(&entry, 1, timeoutMs);
    unsigned char number = 0;
    if (ready <= 0 || ::read(watchdogPipe[0], &number, 1) != 1)
        return -1;
    return number;
}

} // namespace

SignalWatcher::SignalWatcher(QObject* parent)
    : QObject(parent)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, mainPipe) != 0
        || ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, watchdogPipe) != 0) {
        TVL_LOG(tvl::Logger::Warning) << "Cannot watch for termination signals";
        closePair(mainPipe);
        closePair(watchdogPipe);
        return;
    }
    m_notifier = new QSocketNotifier(mainPipe[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &SignalWatcher::readSignal);
    m_watchdog = std::thread([this] { watch(); });

    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int signal : WatchedSignals)
        ::sigaction(signal, &action, nullptr);
}

SignalWatcher::~SignalWatcher()
{
    for (const int signal : WatchedSignals)
        ::signal(signal, SIG_DFL);
    if (m_watchdog.joinable()) {
        [[maybe_unused]] const ssize_t written = ::write(watchdogPipe[1], &QuitWatchdog, 1);
        m_watchdog.join();
    }
    closePair(mainPipe);
    closePair(watchdogPipe);
}

void SignalWatcher::readSignal()
{
    unsigned char number = 0;
    if (::read(mainPipe[0], &number, 1) != 1 || m_stopping.exchange(true))
        return; // a second signal: the watchdog ends the process
    TVL_LOG(tvl::Logger::Notice) << "Stopping on signal" << int(number);
    Q_EMIT stopRequested(number);
}

void SignalWatcher::watch()
{
    for (;;) {
        const int first = nextSignal(-1);
        if (first <= QuitWatchdog)
            return;
        // The main thread has a second to take the request up; a second signal meanwhile, or
        // any later one, means the user does not want to wait.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ResponseTimeMs);
        int next = -1;
        while (!m_stopping.load() && std::chrono::steady_clock::now() < deadline && next < 0) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
            next = nextSignal(int(qMax<qint64>(1, left.count())));
        }
        if (next == QuitWatchdog)
            return;
        if (next > 0)
            endNow(next, "a second termination signal arrived while the launcher was stopping");
        if (!m_stopping.load())
            endNow(first, "the launcher did not start stopping within a second of the signal");
        const int later = nextSignal(-1);
        if (later <= QuitWatchdog)
            return;
        endNow(later, "a second termination signal arrived while the launcher was stopping");
    }
}

void SignalWatcher::endNow(int signal, const char* reason)
{
    // Logging and flushing run on a thread of their own, so that a main thread stuck inside the
    // logger cannot hold this one: after FlushTime the process ends whatever the log did.
    struct Flush
    {
        std::mutex mutex;
        std::condition_variable done;
        bool finished = false;
    };
    auto flush = std::make_shared<Flush>();
    std::thread([flush, signal, reason] {
        TVL_LOG(tvl::Logger::Warning) << QStringLiteral("Stopping at once on signal %1: %2; plugins are not shut down")
                                             .arg(signal)
                                             .arg(QLatin1String(reason));
        tvl::Logger::instance()->flush();
        const std::lock_guard<std::mutex> lock(flush->mutex);
        flush->finished = true;
        flush->done.notify_all();
    }).detach();
    {
        std::unique_lock<std::mutex> lock(flush->mutex);
        flush->done.wait_for(lock, FlushTime, [&flush] { return flush->finished; });
    }
    // The user asked the launcher to stop: that is no crash.
    tvl::updater::tv_remove_crash_marker_now();
    ::_exit(128 + signal);
}
