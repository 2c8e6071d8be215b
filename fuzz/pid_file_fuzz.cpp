#include <sys/mman.h>
#include <unistd.h>

#include <regex>
#include <string>

#include "fuzz/fuzz_target.h"
#include "zelka_core/system/processes.h"

// A pid file holds one number that a process can have, with nothing but blanks around it. A longer
// file than any that is written holds none.
void RunOnInput(std::string_view input) {
    constexpr std::size_t kLongest = 64;
    const int file = memfd_create("pid", MFD_CLOEXEC);
    Require(write(file, input.data(), input.size()) == static_cast<ssize_t>(input.size()));
    const std::string path = "/proc/self/fd/" + std::to_string(file);
    const unsigned long pid = ZelkaCore::ReadPidFile(path);
    (void)close(file);

    static const std::regex kNumber("[ \t\r\n]*0*([0-9]{1,10})[ \t\r\n]*");
    std::cmatch match;
    const bool isNumber =
        input.size() <= kLongest && std::regex_match(input.begin(), input.end(), match, kNumber);
    const unsigned long number = isNumber ? std::stoul(match.str(1)) : 0;
    Require(pid == (number <= 0x7fffffffU ? number : 0));
}
