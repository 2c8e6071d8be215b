#include "platform/memory.h"

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <limits>
#include <string>

namespace {

// The lowest `memory.max` of this process's control group and the groups above it (cgroup v2).
std::uint64_t ControlGroupLimit() {
    std::uint64_t limit = std::numeric_limits<std::uint64_t>::max();
    std::ifstream groups("/proc/self/cgroup");
    std::string line;
    while (std::getline(groups, line)) {
        if (line.rfind("0::", 0) != 0) {
            continue;
        }
        for (std::string group = line.substr(3); !group.empty() && group != "/";
             group.erase(group.rfind('/'))) {
            std::ifstream file("/sys/fs/cgroup" + group + "/memory.max");
            std::uint64_t value = 0;
            if (file >> value) {  // the word "max" does not read as a number
                limit = std::min(limit, value);
            }
        }
    }
    return limit;
}

}  // namespace

std::uint64_t AvailableMemory() {
    const auto physical = static_cast<std::uint64_t>(sysconf(_SC_PHYS_PAGES)) *
                          static_cast<std::uint64_t>(sysconf(_SC_PAGE_SIZE));
    return std::min(physical, ControlGroupLimit());
}

std::uint64_t ResidentMemory() {
    std::ifstream file("/proc/self/statm");
    std::uint64_t size = 0;
    std::uint64_t resident = 0;
    return file >> size >> resident ? resident * static_cast<std::uint64_t>(sysconf(_SC_PAGE_SIZE))
                                    : 0;
}

int _heapmin() {
    (void)malloc_trim(0);
    return 0;
}
