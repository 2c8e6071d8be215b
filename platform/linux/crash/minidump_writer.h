#pragma once

#include <climits>

#include "platform/crash.h"
#include "platform/linux/crash/fault.h"
#include "platform/linux/crash/process_memory.h"
#include "platform/linux/crash/thread_stopper.h"
#include "platform/minidump_format.h"

// Writes a minidump. Runs in the signal handler or in a process that shares its memory.

namespace crash {

enum class Threads { kAll, kFaultingAlone };

// Fixed before any fault; the texts are null-terminated.
struct DumpTarget {
    std::array<char, PATH_MAX> path;
    std::array<char, PATH_MAX> temporaryPath;
    std::array<char, PATH_MAX> folder;
    std::array<char, 1024> comment;
    std::array<char, 512> systemVersion;
    CrashDescription describe;  // may be null
    std::uint8_t processorCount;
};

// The dump's comment: what was prepared, the fault, and the program's own description, a line or
// more of each.
struct CommentText {
    std::array<char, std::size_t{10} * 1024> text;
    std::size_t length;
    std::array<char, std::size_t{8} * 1024 + 1> description;  // by the program, and a null
    // The last attempt to describe has not come to its end.
    bool isDescribing;
};

// Room for what is gathered while a dump is written. Mapped beforehand, a few pages of it are ever
// touched; left uninitialised for that reason.
struct DumpTables {
    MemoryMap map;
    ThreadTable traced;
    minidump::ContextAmd64 context;
    std::array<minidump::Thread, 4097> threads;
    std::array<minidump::MemoryDescriptor, 4097> stacks;  // of threads
    std::array<minidump::Module, 2048> modules;
    std::array<minidump::MemoryDescriptor64, 65'536> memory;
    std::array<std::uint64_t, 4096> pageStates;
    CommentText comment;
    std::array<char16_t, std::size_t{12} * 1024> text;
};

// False if no dump has been written; nothing is left behind then. Threads other than the faulting
// one are told of only by a process of their own that shares the faulting one's memory, with
// SIGCHLD blocked. `tables.comment.isDescribing` has to be false at the first attempt: a later one
// does not call a description again in which the process has ended.
bool WriteMinidump(const EXCEPTION_POINTERS& fault, const DumpTarget& target, Threads which,
                   bool fullMemory, DumpTables& tables);

}  // namespace crash
