#include "platform/linux/crash/process_memory.h"

#include <elf.h>

#include <algorithm>
#include <charconv>
#include <cstring>

#include "platform/linux/crash/signal_safe_calls.h"

namespace crash {
namespace {

constexpr std::uint64_t kRedZone = 128;  // below the stack pointer, x86-64 ABI
constexpr std::uint64_t kGuardReach = std::uint64_t{1} << 20U;  // the kernel's stack_guard_gap

std::size_t ReadMapsText(MemoryMap& map) {
    const int fd = Open("/proc/self/maps", O_RDONLY);
    if (fd < 0) {
        return 0;
    }
    std::size_t length = 0;
    while (length < map.text.size()) {
        const long bytes = Read(fd, map.text.data() + length, map.text.size() - length);
        if (bytes <= 0) {
            break;
        }
        length += static_cast<std::size_t>(bytes);
    }
    Close(fd);
    return length;
}

// Takes the text up to `separator` off the front of `rest`.
std::string_view NextField(std::string_view& rest, char separator) {
    const std::size_t end = std::min(rest.find(separator), rest.size());
    const std::string_view field = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    return field;
}

std::uint64_t ParseHex(std::string_view text) {
    std::uint64_t value = 0;
    (void)std::from_chars(text.data(), text.data() + text.size(), value, 16);
    return value;
}

// "begin-end rwxp offset device inode      path"
Mapping ParseMapping(std::string_view line) {
    Mapping mapping{};
    mapping.range.begin = ParseHex(NextField(line, '-'));
    mapping.range.end = ParseHex(NextField(line, ' '));
    const std::string_view rights = NextField(line, ' ');
    mapping.readable = rights.starts_with('r');
    mapping.executable = rights.substr(0, 3).ends_with('x');
    mapping.fileOffset = ParseHex(NextField(line, ' '));
    (void)NextField(line, ' ');
    mapping.anonymous = NextField(line, ' ') == "0";
    const std::string_view path = line.substr(std::min(line.find_first_not_of(' '), line.size()));
    mapping.pathText = path.data();
    mapping.pathLength = path.size();
    return mapping;
}

// The build id in the notes at `address`, whose `size` bytes are read in one piece.
bool FindBuildIdNote(int memoryFile, std::uint64_t address, std::uint64_t size, BuildId& buildId) {
    std::array<std::uint8_t, 1024> notes{};
    const std::size_t length = std::min<std::size_t>(size, notes.size());
    if (!CopyMemory(memoryFile, address, notes.data(), length)) {
        return false;
    }
    const auto aligned = [](std::size_t bytes) { return (bytes + 3U) & ~std::size_t{3}; };
    for (std::size_t at = 0; at + sizeof(Elf64_Nhdr) <= length;) {
        Elf64_Nhdr note{};
        std::memcpy(&note, notes.data() + at, sizeof note);
        const std::size_t name = at + sizeof note;
        const std::size_t content = name + aligned(note.n_namesz);
        if (content + note.n_descsz > length) {
            return false;
        }
        if (note.n_type == NT_GNU_BUILD_ID && note.n_namesz == sizeof ELF_NOTE_GNU &&
            std::memcmp(notes.data() + name, ELF_NOTE_GNU, sizeof ELF_NOTE_GNU) == 0) {
            buildId.size = std::min<std::size_t>(note.n_descsz, buildId.bytes.size());
            std::memcpy(buildId.bytes.data(), notes.data() + content, buildId.size);
            return true;
        }
        at = content + aligned(note.n_descsz);
    }
    return false;
}

}  // namespace

void ReadMemoryMap(MemoryMap& map) {
    map.textLength = ReadMapsText(map);
    map.count = 0;
    std::string_view rest(map.text.data(), map.textLength);
    while (!rest.empty() && map.count < map.table.size()) {
        map.table[map.count++] = ParseMapping(NextField(rest, '\n'));
    }
}

MemoryRange FindStack(std::span<const Mapping> mappings, std::uint64_t stackPointer,
                      std::uint64_t limit) {
    const std::uint64_t start = stackPointer - std::min(kRedZone, stackPointer);
    const auto found = std::find_if(mappings.begin(), mappings.end(), [start](const Mapping& m) {
        return m.range.end > start && m.readable;
    });
    if (found == mappings.end() ||
        (found->range.begin > start && found->range.begin - start > kGuardReach)) {
        return {};
    }
    const std::uint64_t begin = std::max(start, found->range.begin);
    return {begin, std::min(found->range.end, begin + limit)};
}

bool CopyMemory(int memoryFile, std::uint64_t address, void* target, std::size_t size) {
    return ReadAt(memoryFile, target, size, address) == static_cast<long>(size);
}

bool ReadElfImage(int memoryFile, std::uint64_t base, BuildId& buildId) {
    buildId.size = 0;
    Elf64_Ehdr header{};
    if (!CopyMemory(memoryFile, base, &header, sizeof header) ||
        std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) {
        return false;
    }
    std::array<Elf64_Phdr, 64> table{};
    const std::span segments(table.data(), std::min<std::size_t>(header.e_phnum, table.size()));
    if (!CopyMemory(memoryFile, base + header.e_phoff, table.data(), segments.size_bytes())) {
        return true;
    }
    const auto firstLoaded =
        std::find_if(segments.begin(), segments.end(),
                     [](const Elf64_Phdr& segment) { return segment.p_type == PT_LOAD; });
    if (firstLoaded == segments.end()) {
        return true;
    }
    for (const Elf64_Phdr& segment : segments) {
        // Addresses in the image count from its first loaded segment, which lies at `base`.
        const std::uint64_t address = base + segment.p_vaddr - firstLoaded->p_vaddr;
        if (segment.p_type == PT_NOTE &&
            FindBuildIdNote(memoryFile, address, segment.p_memsz, buildId)) {
            break;
        }
    }
    return true;
}

}  // namespace crash
