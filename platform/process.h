#pragma once

#include <chrono>
#include <string>
#include <system_error>

// Other processes: what the system knows of them, and stopping them. Any thread. A process id is an
// unsigned long as pid files and messages have it; 0 is none.

// Whether a number can be the id of a process.
bool IsProcessId(unsigned long pid);

// A running process's executable, links resolved, and its arguments, each with a blank before it;
// the first 64 KiB of them. In the bytes that the system has.
struct ProcessCommand {
    std::string executable;
    std::string arguments;
};

// The executable is right also when the process was started by another name or rewrote its title;
// of one that was deleted or replaced it is the path that the file had. Both are empty if there is
// nothing to be had: no such process, one that has ended, a thread of the system, or one that this
// user may not inspect.
ProcessCommand CommandOf(unsigned long pid);

// Stops a process and waits until it is gone: ended, even if its parent has not collected it yet,
// or not there in the first place. A child of this process is collected. It is asked to end first
// (SIGTERM; a halted one is continued) and has `patience` for it. Then it is killed (SIGKILL), and
// gets ten seconds to vanish.
// PlatformError::kNotToBeStopped for 0, 1, this process and what is no process id,
// PlatformError::kStillThere if it outlives that.
[[nodiscard]] std::error_code StopProcess(unsigned long pid, std::chrono::milliseconds patience);

// The number by which the system knows the calling thread.
long CurrentThreadNumber();
