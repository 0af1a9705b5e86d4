#pragma once

#include <QtCore/QObject>

#include <atomic>
#include <thread>

class QSocketNotifier;

/**
 * Turns SIGINT, SIGTERM and SIGHUP into the signal stopRequested() on the main thread, so that a
 * launcher asked to stop shuts its plugins down in order (and is not taken for a crashed one at
 * its next start).
 *
 * The user who asks twice, or whose request the main thread does not take up within a second
 * (a plugin's init() or a script that never returns, before the event loop runs), does not wait
 * for the plugins: a watchdog thread then flushes the log, removes the crash marker and ends the
 * process with 128 + the signal's number. A crash or SIGKILL still leaves the marker.
 */
class SignalWatcher : public QObject
{
    Q_OBJECT

public:
    explicit SignalWatcher(QObject* parent = nullptr);
    ~SignalWatcher() override;

    /// How long the main thread may take to start stopping before the process ends at once.
    static constexpr int ResponseTimeMs = 1000;

Q_SIGNALS:
    void stopRequested(int signal);

private:
    void readSignal();
    void watch();
    [[noreturn]] static void endNow(int signal, const char* reason);

    QSocketNotifier* m_notifier = nullptr;
    std::thread m_watchdog;
    std::atomic<bool> m_stopping{false};
};
