#pragma once

#include <atomic>
#include <chrono>

struct lua_State;
struct lua_Debug;

namespace tvl::script {

/**
 * The wall-time limit of running scripts. The instruction hook of an interpreter normally runs
 * every so many instructions, and a library function written in C runs without any: a single
 * call (sorting with a C comparator, a walk over a long string) could keep the script far past
 * its limit. One thread for the whole process waits for the deadlines of the running
 * evaluations; when one passes, it marks the evaluation as overdue and arms that interpreter's
 * hook for the very next instruction and function call, C functions included.
 */
class Watchdog
{
public:
    using Clock = std::chrono::steady_clock;

    /// What an evaluation registers while it runs.
    struct Entry
    {
        lua_State* L = nullptr;
        void (*hook)(lua_State*, lua_Debug*) = nullptr;
        Clock::time_point deadline;
        std::atomic<bool> overdue{false};
    };

    /**
     * Watches `entry` until unwatch(). False when no watchdog thread could be started: the
     * caller then has to read the clock itself.
     */
    static bool watch(Entry* entry);
    /// Returns once the watchdog will not touch `entry` or its interpreter any more.
    static void unwatch(Entry* entry);
};

} // namespace tvl::script
