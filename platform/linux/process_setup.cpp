#include "platform/process_setup.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "platform/error.h"
#include "platform/scoped_fd.h"

namespace {

// A handler and not SIG_IGN, because that would be inherited by the programs started from here.
void IgnoreSignal(int) {
}

}  // namespace

std::error_code GetModuleFileNameW(std::string& path) {
    std::array<char, PATH_MAX> buffer{};
    const ssize_t length = readlink("/proc/self/exe", buffer.data(), buffer.size());
    if (length < 0) {
        return LastSystemError();
    }
    const std::string_view found(buffer.data(), static_cast<std::size_t>(length));
    if (std::mbstowcs(nullptr, std::string(found).c_str(), 0) == static_cast<std::size_t>(-1)) {
        return std::make_error_code(std::errc::illegal_byte_sequence);
    }
    path = found;
    return {};
}

void SetErrorMode() {
    struct sigaction action = {};
    action.sa_handler = IgnoreSignal;
    action.sa_flags = SA_RESTART;
    (void)sigaction(SIGPIPE, &action, nullptr);
    (void)sigaction(SIGXFSZ, &action, nullptr);
}

std::error_code CheckFreeDescriptors(std::size_t count) {
    std::vector<ScopedFd> opened(count);
    for (ScopedFd& descriptor : opened) {
        descriptor.Reset(open("/dev/null", O_RDONLY | O_CLOEXEC));
        if (!descriptor.IsOpen()) {
            return LastSystemError();
        }
    }
    return {};
}

void OccupyStandardDescriptors() {
    // The lowest free descriptor is the one that is given out.
    int descriptor = open("/dev/null", O_RDWR);
    while (descriptor >= 0 && descriptor <= STDERR_FILENO) {
        descriptor = open("/dev/null", O_RDWR);
    }
    if (descriptor > STDERR_FILENO) {
        (void)close(descriptor);
    }
}

void PinTextEncoding() {
    (void)std::setlocale(LC_CTYPE, "C.UTF-8");
    (void)std::setlocale(LC_NUMERIC, "C");
}
