#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>
#include <string_view>

#include "platform/scoped_fd.h"
#include "zelka_core/system/processes.h"
#include "zelka_core/text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

// A pid is a number that a process can have, and is written in the file.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const ScopedFd file(memfd_create("pid", MFD_CLOEXEC));
    if (write(file.Get(), data, size) != static_cast<ssize_t>(size)) {
        std::abort();
    }
    const std::string path = "/proc/self/fd/" + std::to_string(file.Get());
    const unsigned long pid = ZelkaCore::ReadPidFile(ZelkaCore::FromUtf8(path));
    const std::string_view content(reinterpret_cast<const char*>(data), size);
    if (pid != 0 && (pid > static_cast<unsigned long>(std::numeric_limits<pid_t>::max()) ||
                     content.find(std::to_string(pid)) == std::string_view::npos)) {
        std::abort();
    }
    return 0;
}
