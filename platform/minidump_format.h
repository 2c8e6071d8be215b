#pragma once

#include <array>
#include <cstdint>

// The minidump file format, as far as it is written here. Structures, stream numbers and flags are
// those of the public documentation of the Windows SDK header minidumpapiset.h, the register record
// that of CONTEXT in winnt.h for x86-64. What the format lacks for Linux (platform number, map
// stream, build id record) has the numbers that LLVM's llvm/BinaryFormat/Minidump.h and
// MinidumpConstants.def list, which are what debuggers read. All numbers are little-endian; an Rva
// is an offset from the start of the file, a string a byte count, UTF-16 and a null.

namespace crash::minidump {

using Rva = std::uint32_t;

inline constexpr std::uint32_t kSignature = 0x504D444D;  // "MDMP"
inline constexpr std::uint32_t kVersion = 42899;
inline constexpr std::uint64_t kFlagNormal = 0;
inline constexpr std::uint64_t kFlagWithFullMemory = 2;
inline constexpr std::uint16_t kArchitectureAmd64 = 9;
inline constexpr std::uint32_t kPlatformLinux = 0x8201;
inline constexpr std::uint32_t kMiscProcessId = 1;
inline constexpr std::uint32_t kCodeViewElfBuildId = 0x4270454C;  // "LEpB"

enum StreamType : std::uint32_t {
    kThreadListStream = 3,
    kModuleListStream = 4,
    kMemoryListStream = 5,
    kExceptionStream = 6,
    kSystemInfoStream = 7,
    kMemory64ListStream = 9,
    kCommentStreamW = 11,
    kMiscInfoStream = 15,
    kLinuxMapsStream = 0x47670009,
};

#pragma pack(push, 4)

struct Location {
    std::uint32_t dataSize;
    std::uint32_t rva;
};

struct Header {
    std::uint32_t signature;
    std::uint32_t version;
    std::uint32_t numberOfStreams;
    std::uint32_t streamDirectoryRva;
    std::uint32_t checkSum;
    std::uint32_t timeDateStamp;  // seconds since 1970
    std::uint64_t flags;
};
static_assert(sizeof(Header) == 32);

struct Directory {
    StreamType streamType;
    Location location;
};
static_assert(sizeof(Directory) == 12);

struct SystemInfo {
    std::uint16_t processorArchitecture;
    std::uint16_t processorLevel;
    std::uint16_t processorRevision;
    std::uint8_t numberOfProcessors;
    std::uint8_t productType;
    std::uint32_t majorVersion;
    std::uint32_t minorVersion;
    std::uint32_t buildNumber;
    std::uint32_t platformId;
    std::uint32_t csdVersionRva;
    std::uint16_t suiteMask;
    std::uint16_t reserved;
    std::array<std::uint32_t, 6> cpu;
};
static_assert(sizeof(SystemInfo) == 56);

struct MiscInfo {
    std::uint32_t sizeOfInfo;
    std::uint32_t flags;
    std::uint32_t processId;
    std::uint32_t processCreateTime;
    std::uint32_t processUserTime;
    std::uint32_t processKernelTime;
};
static_assert(sizeof(MiscInfo) == 24);

struct MemoryDescriptor {
    std::uint64_t startOfMemoryRange;
    Location memory;
};
static_assert(sizeof(MemoryDescriptor) == 16);

struct MemoryDescriptor64 {
    std::uint64_t startOfMemoryRange;
    std::uint64_t dataSize;
};

// Followed by the descriptors; the memory of all of them lies in their order from baseRva on.
struct Memory64List {
    std::uint64_t numberOfMemoryRanges;
    std::uint64_t baseRva;
};

struct Thread {
    std::uint32_t threadId;
    std::uint32_t suspendCount;
    std::uint32_t priorityClass;
    std::uint32_t priority;
    std::uint64_t teb;
    MemoryDescriptor stack;
    Location threadContext;
};
static_assert(sizeof(Thread) == 48);

struct Module {
    std::uint64_t baseOfImage;
    std::uint32_t sizeOfImage;
    std::uint32_t checkSum;
    std::uint32_t timeDateStamp;
    std::uint32_t moduleNameRva;
    std::array<std::uint32_t, 13> versionInfo;
    Location cvRecord;
    Location miscRecord;
    std::uint64_t reserved0;
    std::uint64_t reserved1;
};
static_assert(sizeof(Module) == 108);

struct Exception {
    std::uint32_t exceptionCode;   // on Linux: the signal
    std::uint32_t exceptionFlags;  // on Linux: its si_code
    std::uint64_t exceptionRecord;
    std::uint64_t exceptionAddress;
    std::uint32_t numberParameters;
    std::uint32_t unusedAlignment;
    std::array<std::uint64_t, 15> exceptionInformation;
};

struct ExceptionStream {
    std::uint32_t threadId;
    std::uint32_t alignment;
    Exception exception;
    Location threadContext;
};
static_assert(sizeof(ExceptionStream) == 168);

// CONTEXT_AMD64 | CONTEXT_CONTROL | CONTEXT_INTEGER | CONTEXT_SEGMENTS | CONTEXT_FLOATING_POINT
inline constexpr std::uint32_t kContextFlagsAmd64 = 0x10000F;

struct ContextAmd64 {
    std::array<std::uint64_t, 6> homes;
    std::uint32_t contextFlags;
    std::uint32_t mxCsr;
    std::uint16_t segCs, segDs, segEs, segFs, segGs, segSs;
    std::uint32_t eFlags;
    std::array<std::uint64_t, 6> debugRegisters;
    std::uint64_t rax, rcx, rdx, rbx, rsp, rbp, rsi, rdi, r8, r9, r10, r11, r12, r13, r14, r15, rip;
    std::array<std::uint8_t, 512> floatSave;  // as FXSAVE stores it
    std::array<std::uint64_t, 52> vectorRegisters;
    std::array<std::uint64_t, 6> branchRecords;
};
static_assert(sizeof(ContextAmd64) == 1232);

#pragma pack(pop)

}  // namespace crash::minidump
