#include "ScriptWatchdog_p.h"

#include <lua.h>

#include <QtCore/QtGlobal>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <vector>

#include <pthread.h>

namespace tvl::script {

namespace {

class WatchdogThread
{
public:
    // Created on first use and never destroyed: the thread may still wait while the process
    // exits. A forked child has no such thread (and maybe a mutex locked by it): it starts
    // afresh.
    static WatchdogThread* instance()
    {
        WatchdogThread* current = s_current.load(std::memory_order_acquire);
        if (!current) {
            static const bool forkHandled = ::pthread_atfork(nullptr, nullptr, &forkChild) == 0;
            Q_UNUSED(forkHandled)
            std::lock_guard<std::mutex> lock(s_creation);
            current = s_current.load(std::memory_order_relaxed);
            if (!current) {
                current = new WatchdogThread;
                s_current.store(current, std::memory_order_release);
            }
        }
        return current->m_running ? current : nullptr;
    }

    void watch(Watchdog::Entry* entry)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_entries.push_back(entry);
        // The thread sleeps until a wake-up time of its own and looks at every entry then: a
        // deadline after that time needs no wake-up call, which keeps the common case (one
        // evaluation after another, all with the same limit) free of system calls.
        if (!m_sleeping || entry->deadline < m_wakeUp)
            m_condition.notify_one();
    }

    void unwatch(Watchdog::Entry* entry)
    {
        // Taking the mutex also waits for an arming in progress.
        std::lock_guard<std::mutex> lock(m_mutex);
        m_entries.erase(std::remove(m_entries.begin(), m_entries.end(), entry), m_entries.end());
    }

private:
    WatchdogThread()
    {
        try {
            std::thread([this] { run(); }).detach();
            m_running = true;
        } catch (const std::system_error&) {
        }
    }

    void run()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        for (;;) {
            const Watchdog::Clock::time_point now = Watchdog::Clock::now();
            Watchdog::Clock::time_point next = Watchdog::Clock::time_point::max();
            for (Watchdog::Entry* entry : m_entries) {
                if (entry->overdue.load(std::memory_order_relaxed))
                    continue;
                if (entry->deadline <= now) {
                    entry->overdue.store(true, std::memory_order_release);
                    // What the interpreter's own signal handler does to stop a script. The
                    // evaluation keeps its interpreter alive until unwatch(), which waits for
                    // this mutex.
                    lua_sethook(entry->L, entry->hook, LUA_MASKCOUNT | LUA_MASKCALL, 1);
                } else {
                    next = std::min(next, entry->deadline);
                }
            }
            m_sleeping = next != Watchdog::Clock::time_point::max();
            m_wakeUp = next;
            if (m_sleeping)
                m_condition.wait_until(lock, next);
            else
                m_condition.wait(lock);
            m_sleeping = false;
        }
    }

    static void forkChild()
    {
        new (&s_creation) std::mutex;
        s_current.store(nullptr, std::memory_order_relaxed);
    }

    static std::atomic<WatchdogThread*> s_current;
    static std::mutex s_creation;

    bool m_running = false;
    std::mutex m_mutex;
    std::condition_variable m_condition;
    std::vector<Watchdog::Entry*> m_entries;
    bool m_sleeping = false;
    Watchdog::Clock::time_point m_wakeUp;
};

std::atomic<WatchdogThread*> WatchdogThread::s_current{nullptr};
std::mutex WatchdogThread::s_creation;

} // namespace

bool Watchdog::watch(Entry* entry)
{
    WatchdogThread* thread = WatchdogThread::instance();
    if (!thread)
        return false;
    thread->watch(entry);
    return true;
}

void Watchdog::unwatch(Entry* entry)
{
    if (WatchdogThread* thread = WatchdogThread::instance())
        thread->unwatch(entry);
}

} // namespace tvl::script
