#include "platform/process_setup.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <clocale>
#include <csignal>
#include <cstdlib>

namespace {

// A handler and not SIG_IGN, because that would be inherited by the programs started from here.
void IgnoreSignal(int) {
}

DWORD FailWith(int code) {
    SetLastError(static_cast<DWORD>(code));
    return 0;
}

}  // namespace

DWORD GetModuleFileNameW(const void* module, wchar_t* buffer, DWORD size) {
    if (size == 0) {
        return FailWith(EINVAL);
    }
    buffer[0] = L'\0';
    if (module != nullptr) {
        return FailWith(EINVAL);
    }
    std::array<char, PATH_MAX + 1> path{};
    const ssize_t bytes = readlink("/proc/self/exe", path.data(), PATH_MAX);
    if (bytes < 0) {
        return FailWith(errno);
    }
    const std::size_t needed = std::mbstowcs(nullptr, path.data(), 0);
    if (needed == static_cast<std::size_t>(-1)) {
        return FailWith(EILSEQ);
    }
    if (needed >= size) {
        return FailWith(ENAMETOOLONG);
    }
    return static_cast<DWORD>(std::mbstowcs(buffer, path.data(), size));
}

bool SetDllDirectoryW(const wchar_t*) {
    return true;
}

DWORD SetErrorMode(DWORD mode) {
    static DWORD current = 0;
    const DWORD previous = current;
    current = mode;
    struct sigaction action = {};
    action.sa_handler = mode != 0 ? IgnoreSignal : SIG_DFL;
    action.sa_flags = SA_RESTART;
    (void)sigaction(SIGPIPE, &action, nullptr);
    (void)sigaction(SIGXFSZ, &action, nullptr);
    return previous;
}

unsigned _set_abort_behavior(unsigned, unsigned) {
    return 0;
}

bool HeapSetInformation(HANDLE, int, const void*, std::size_t) {
    return true;
}

int CoInitializeEx(const void*, DWORD) {
    return 0;
}

void CoUninitialize() {
}

int WSAStartup(unsigned) {
    return 0;
}

int WSACleanup() {
    return 0;
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
