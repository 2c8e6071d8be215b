#include "platform/linux/crash/full_memory.h"

#include <algorithm>

#include "platform/linux/crash/signal_safe_calls.h"

namespace crash {
namespace {

constexpr std::uint64_t kPage = 4096;

// Bits of an entry of /proc/PID/pagemap, as the kernel's admin-guide/mm/pagemap.rst lists them.
constexpr std::uint64_t kPresent = std::uint64_t{1} << 63U;
constexpr std::uint64_t kSwapped = std::uint64_t{1} << 62U;

// Memory of devices may answer a read with an action, and the kernel's own pages refuse it. Shared
// memory has a name below /dev as well.
bool IsWanted(const Mapping& mapping) {
    const std::string_view path = mapping.Path();
    const bool device = path.starts_with("/dev/") && !path.starts_with("/dev/shm/") &&
                        !path.starts_with("/dev/zero");
    return mapping.readable && !device && !path.starts_with("[vvar") && path != "[vsyscall]";
}

std::span<const minidump::MemoryDescriptor64> ListMemory(DumpTables& tables) {
    std::size_t count = 0;
    for (const Mapping& mapping : tables.map.Mappings()) {
        if (IsWanted(mapping)) {
            tables.memory[count++] = {.startOfMemoryRange = mapping.range.begin,
                                      .dataSize = mapping.range.Size()};
        }
    }
    return {tables.memory.data(), count};
}

bool HasContent(std::uint64_t pageState) {
    return (pageState & (kPresent | kSwapped)) != 0;
}

// Appends the pages that `states` describes, from `address` on, in runs of the same kind.
void AppendPages(DumpFile& file, std::uint64_t address, std::span<const std::uint64_t> states) {
    while (!states.empty()) {
        const bool content = HasContent(states.front());
        const auto end = std::find_if(states.begin(), states.end(), [content](std::uint64_t state) {
            return HasContent(state) != content;
        });
        const auto pages = static_cast<std::size_t>(end - states.begin());
        if (content) {
            file.AppendMemory(address, pages * kPage);
        } else {
            file.AppendZeros(pages * kPage);
        }
        address += pages * kPage;
        states = states.subspan(pages);
    }
}

void AppendAnonymousMemory(DumpFile& file, int pageMap, MemoryRange range,
                           std::span<std::uint64_t> states) {
    while (range.Size() != 0 && !file.Failed()) {
        const std::size_t pages = std::min(states.size(), range.Size() / kPage);
        const std::size_t bytes = pages * sizeof states.front();
        const std::uint64_t offset = range.begin / kPage * sizeof states.front();
        if (ReadAt(pageMap, states.data(), bytes, offset) != static_cast<long>(bytes)) {
            file.AppendMemory(range.begin, range.Size());
            return;
        }
        AppendPages(file, range.begin, states.first(pages));
        range.begin += pages * kPage;
    }
}

}  // namespace

minidump::Location AppendFullMemory(DumpFile& file, DumpTables& tables) {
    const auto memory = ListMemory(tables);
    minidump::Memory64List list{};
    list.numberOfMemoryRanges = memory.size();
    list.baseRva = file.Offset() + sizeof list + memory.size_bytes();
    minidump::Location location = file.Append(&list, sizeof list);
    location.dataSize += file.Append(memory.data(), memory.size_bytes()).dataSize;

    const int pageMap = Open("/proc/self/pagemap", O_RDONLY);
    for (const Mapping& mapping : tables.map.Mappings()) {
        if (!IsWanted(mapping)) {
            continue;
        }
        if (mapping.anonymous) {
            AppendAnonymousMemory(file, pageMap, mapping.range, tables.pageStates);
        } else {
            file.AppendMemory(mapping.range.begin, mapping.range.Size());
        }
    }
    Close(pageMap);
    return location;
}

}  // namespace crash
