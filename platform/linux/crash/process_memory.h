#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

// The memory of this process as /proc tells it. Runs in the signal handler: no allocation, and no
// address is dereferenced that may be unreadable.

namespace crash {

struct MemoryRange {
    std::uint64_t begin;
    std::uint64_t end;

    [[nodiscard]] std::uint64_t Size() const { return end - begin; }
};

struct Mapping {
    MemoryRange range;
    std::uint64_t fileOffset;
    bool readable;
    bool executable;
    bool anonymous;  // not of a file: a page that was never touched is zeros
    const char* pathText;
    std::size_t pathLength;

    [[nodiscard]] std::string_view Path() const { return {pathText, pathLength}; }
};

// Left uninitialised, so that no page is touched before it is needed. The kernel allows 65,530
// mappings a process unless told otherwise; what exceeds the room is left out.
struct MemoryMap {
    std::array<char, std::size_t{8} << 20U> text;  // as /proc/self/maps tells it
    std::size_t textLength;
    std::array<Mapping, 65'536> table;
    std::size_t count;

    [[nodiscard]] std::span<const Mapping> Mappings() const { return {table.data(), count}; }
};

// Reads the mappings, in the order of their addresses. An empty map if /proc is not there.
void ReadMemoryMap(MemoryMap& map);

// The part of a thread's stack in use, at most `limit` bytes from its innermost end. A stack
// pointer that has run over the end finds the stack above it. Empty if there is none.
MemoryRange FindStack(std::span<const Mapping> mappings, std::uint64_t stackPointer,
                      std::uint64_t limit);

// Copies memory of this process. False if any of it is unreadable; `target` is then undefined.
bool CopyMemory(int memoryFile, std::uint64_t address, void* target, std::size_t size);

struct BuildId {
    std::array<std::uint8_t, 64> bytes;
    std::size_t size;  // 0: none
};

// Whether an ELF image is loaded at `base`, and its build id if it has one.
// `memoryFile` is an open /proc/self/mem.
bool ReadElfImage(int memoryFile, std::uint64_t base, BuildId& buildId);

}  // namespace crash
