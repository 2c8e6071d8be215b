#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "platform/program.h"
#include "platform/scoped_fd.h"

// With what a program starts.
struct ProgramStart {
    std::vector<std::string> arguments;  // the first names the program; none holds a null
    // Whether a name without a slash is looked for in PATH: in that of `environment` if it has one,
    // else in that of this process. Otherwise the name is a path.
    bool isSearched = false;
    bool hasOwnGroup = false;  // leads a process group of its own, which is killed with it
    std::optional<std::vector<std::string>> environment;  // NAME=value; as here if not given
    ScopedFd folder;                 // where it starts, of OpenFolder(); as here if not open
    std::string input;               // what its standard input gives before it ends
    std::size_t outputLimit = kMiB;  // bytes kept of each output; the rest is taken and dropped

    static constexpr std::size_t kMiB = 1'048'576;
};

// What came of a program.
struct ProgramEnd {
    int code = 0;  // its exit status, or the signal that ended it
    bool isSignal = false;
    ProgramOutput output;  // standard output
    ProgramOutput errors;  // standard error
};

// The folder in which a program is to start.
[[nodiscard]] std::error_code OpenFolder(const std::string& path, ScopedFd& folder);

// A program while it runs. It began with the signal settings of a fresh process, and with no other
// descriptor than the standard ones. Nothing here waits but the destructor, and that not for long:
// it kills a program, with its group, that was not collected. One thread at a time.
class RunningProgram {
  public:
    // What to wait for: all for reading, the input for writing.
    enum class Descriptor { kEnd, kOutput, kErrors, kInput };

    [[nodiscard]] static std::error_code Start(ProgramStart start,
                                               std::unique_ptr<RunningProgram>& program);

    virtual ~RunningProgram() = default;
    RunningProgram(const RunningProgram&) = delete;
    RunningProgram& operator=(const RunningProgram&) = delete;

    // -1 once there is nothing more to wait for. kEnd is there until the program is collected.
    [[nodiscard]] virtual int Get(Descriptor descriptor) const = 0;

    // Takes some of what the program has written, and gives it some of its input.
    virtual void Transfer() = 0;

    // Kills the program, and all of its group if it has its own. It has ended when kEnd says so.
    // Nothing happens after it was collected.
    [[nodiscard]] virtual std::error_code Kill() = 0;

    // Collects a program that has ended, with what lies in its pipes, and not what somebody that it
    // has left behind may go on writing. Nothing is open then. EAGAIN while it runs.
    [[nodiscard]] virtual std::error_code Collect(ProgramEnd& end) = 0;

  protected:
    RunningProgram() = default;
};
