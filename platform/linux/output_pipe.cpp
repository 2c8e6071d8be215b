#include "platform/linux/output_pipe.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "platform/linux/program_pipe.h"

namespace {

constexpr std::size_t kReadSize = 65'536;  // what a pipe holds

}  // namespace

std::error_code OutputPipe::Open(std::size_t limit) {
    m_limit = limit;
    return OpenProgramPipe(PipeEnd::kWriting, m_reading, m_writing);
}

void OutputPipe::Take() {
    if (m_reading.IsOpen()) {
        (void)TakeAtMost(kReadSize);
    }
}

void OutputPipe::TakeTheRest() {
    int pending = 0;
    if (m_reading.IsOpen() && ioctl(m_reading.Get(), FIONREAD, &pending) != 0) {
        pending = 0;
    }
    auto left = static_cast<std::size_t>(std::max(pending, 0));
    std::size_t taken = 1;
    while (left > 0 && taken > 0) {
        taken = TakeAtMost(left);
        left -= taken;
    }
    m_reading.Reset();
}

// Closes the pipe at its end. The number of bytes taken, 0 also when there is nothing now.
std::size_t OutputPipe::TakeAtMost(std::size_t limit) {
    std::array<char, kReadSize> buffer;
    const ssize_t count = read(m_reading.Get(), buffer.data(), std::min(limit, buffer.size()));
    if (count <= 0) {
        if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
            m_reading.Reset();
        }
        return 0;
    }
    const auto bytes = static_cast<std::size_t>(count);
    const std::size_t kept = std::min(bytes, m_limit - output.content.size());
    output.content.append(buffer.data(), kept);
    output.dropped += bytes - kept;
    return bytes;
}
