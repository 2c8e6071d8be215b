#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <span>

// Stops the threads of another process with ptrace. Runs in the process that writes a dump: no
// allocation. The threads run on when the calling process ends.

namespace crash {

struct TracedThread {
    enum class State { kSeized, kStopped, kGone };

    pid_t id;
    State state;
};

// Left uninitialised, as every table of the dump. Threads beyond its room are left out.
struct ThreadTable {
    std::array<TracedThread, 4096> threads;
    std::size_t count;
    alignas(8) std::array<char, 16384> entries;  // of /proc/PID/task

    [[nodiscard]] std::span<TracedThread> Threads() { return {threads.data(), count}; }
};

// Stops every thread of `process` except one, and waits 5 s at most until they have stopped: a
// thread that waits in the kernel where nothing interrupts it may not. The table then lists those
// that could be seized; it is empty if the system refuses. SIGCHLD has to be blocked.
void StopThreads(pid_t process, pid_t except, ThreadTable& table);

}  // namespace crash
