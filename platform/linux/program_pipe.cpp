#include "platform/linux/program_pipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <utility>

#include "platform/error.h"

std::error_code OpenProgramPipe(PipeEnd program, ScopedFd& reading, ScopedFd& writing) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        return LastSystemError();
    }
    ScopedFd read(ends[0]);
    ScopedFd write(ends[1]);
    ScopedFd& theirs = program == PipeEnd::kReading ? read : write;
    const ScopedFd& ours = program == PipeEnd::kReading ? write : read;
    if (theirs.Get() <= STDERR_FILENO) {
        theirs.Reset(fcntl(theirs.Get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    }
    if (!theirs.IsOpen() || fcntl(ours.Get(), F_SETFL, O_NONBLOCK) != 0) {
        return LastSystemError();
    }
    reading = std::move(read);
    writing = std::move(write);
    return {};
}
