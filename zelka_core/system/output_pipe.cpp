#include "zelka_core/system/output_pipe.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <wx/log.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "zelka_core/text.h"

namespace ZelkaCore {
namespace {

constexpr std::size_t kContentLimit = 1'048'576;
constexpr std::size_t kReadSize = 65'536;  // what a pipe holds

}  // namespace

bool OutputPipe::Open() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        return false;
    }
    m_reading.Reset(ends[0]);
    const ScopedFd writing(ends[1]);
    // Above the standard descriptors, which the program's are put on one after the other.
    m_writing.Reset(fcntl(writing.Get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    return m_writing.IsOpen() && fcntl(m_reading.Get(), F_SETFL, O_NONBLOCK) == 0;
}

void OutputPipe::Take() {
    (void)TakeAtMost(kReadSize);
}

void OutputPipe::TakeTheRest() {
    int pending = 0;
    if (!m_reading.IsOpen() || ioctl(m_reading.Get(), FIONREAD, &pending) != 0) {
        return;
    }
    auto left = static_cast<std::size_t>(std::max(pending, 0));
    while (left > 0) {
        const std::size_t taken = TakeAtMost(left);
        if (taken == 0) {
            return;
        }
        left -= taken;
    }
}

wxString OutputPipe::Text(const std::string& program, const char* name) {
    if (m_dropped != 0) {
        DropBrokenCharacter();
        wxLogWarning("%s: %zu bytes of its %s were dropped", FromUtf8(program), m_dropped,
                     wxString::FromAscii(name));
    }
    return FromUtf8(m_content);
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
    const std::size_t kept = std::min(bytes, kContentLimit - m_content.size());
    m_content.append(buffer.data(), kept);
    m_dropped += bytes - kept;
    return bytes;
}

// A character of several bytes may have been cut at the end.
void OutputPipe::DropBrokenCharacter() {
    std::size_t last = m_content.size() - 1;
    while (last > 0 && (static_cast<unsigned char>(m_content[last]) & 0xC0U) == 0x80U) {
        --last;
    }
    if (static_cast<unsigned char>(m_content[last]) >= 0xC0U) {
        m_dropped += m_content.size() - last;
        m_content.resize(last);
    }
}

}  // namespace ZelkaCore
