#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>

// Faults that would end the process, and the dump that tells of them afterwards.

// One fault, as the system reported it; what it holds is the platform's own business.
struct EXCEPTION_POINTERS;

// Called on the thread that faulted, in a signal handler on an alternate stack with every signal
// blocked: it may call only what is safe there, and may use some 48 KiB of stack. The process dies
// of the fault afterwards whatever the filter answers.
using LPTOP_LEVEL_EXCEPTION_FILTER = std::int32_t (*)(EXCEPTION_POINTERS* fault);

inline constexpr std::int32_t EXCEPTION_EXECUTE_HANDLER = 1;

// From here on `filter` is called when this process faults: SIGSEGV, SIGBUS, SIGFPE, SIGILL,
// SIGABRT, SIGTRAP or SIGSYS, from within or sent by somebody. It is called once: a thread that
// faults while another's fault is handled waits for the end of the process, and a fault in the
// filter ends it at once. Then the process dies of the same signal, as whoever waits for it sees.
// Null ends the cover: these signals do again what they did before it began, which is to kill,
// unless another part of the process had a handler. Child processes made by fork() are not covered.
// Returns the filter that was in force, or null.
//
// A fault by stack overflow needs an alternate stack of its thread. The calling thread gets one
// here, and every thread made with pthread_create (so by any library) has one from its start.
LPTOP_LEVEL_EXCEPTION_FILTER SetUnhandledExceptionFilter(LPTOP_LEVEL_EXCEPTION_FILTER filter);

// "SIGSEGV", for the number that a dump holds; "signal" if it is of no fault.
std::string_view NameOfFault(int signal);

// Writes UTF-8 text on what the program did when it faulted to `buffer`, and returns its length.
// Runs in the signal handler, or in a process that shares the memory of the faulting one; in either
// case it finds thread-local data and identity of the thread that faulted. The other threads are
// stopped where the system allows it, at any instruction: what they were at may be half done.
// It may allocate nothing and lock nothing, ends by itself, and may use some 16 KiB of stack. If it
// touches memory that is not there it is left where it is, without a destructor; then what `buffer`
// holds up to its first null is taken, as it comes filled with nulls.
using CrashDescription = std::size_t (*)(char* buffer, std::size_t size);

struct CrashDumpSettings {
    std::string file;  // full path; UTF-8
    // UTF-8; the first line of the dump's comment. The second says in words what the fault was, and
    // the text of `describe`, if there is one, follows.
    std::string comment;
    bool fullMemory = false;
    CrashDescription describe = nullptr;
};

// Makes ready for WriteCrashDump: the file's folder, made with mode 0700 if it is missing (as are
// those above it), and all the memory that writing takes. Not to be called while a filter that
// writes dumps is in force. An error if no dump could be written: EINVAL for a path that is not
// absolute, ENAMETOOLONG, or why the folder cannot be made or written to; settings made before then
// stay.
[[nodiscard]] std::error_code PrepareCrashDump(const CrashDumpSettings& settings);

// Writes the dump of a fault to the prepared file, mode 0600, replacing an older one; safe in a
// signal handler. It holds every thread's registers and the innermost 256 KiB of its stack at most,
// the modules with their build ids, and with `fullMemory` all readable memory; a debugger that
// reads minidumps opens it. The other threads are stopped meanwhile; where the system does not
// allow that, or the dump asked for cannot be written (no space, or more than 1 minute, 10 with
// `fullMemory`), a dump of the faulting thread alone takes its place.
// One line on standard error says what the fault was and where the dump lies, with the first line
// of the description. False if there is none: the folder then holds what it held before.
bool WriteCrashDump(const EXCEPTION_POINTERS& fault);
