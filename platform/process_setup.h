#pragma once

#include <cstddef>

#include "platform/events.h"

// One-time settings of the process, made before a second thread exists. Where Linux has no such
// setting because it never behaves otherwise, the operation says so and does nothing.

inline constexpr DWORD SEM_FAILCRITICALERRORS = 0x0001;
inline constexpr DWORD SEM_NOGPFAULTERRORBOX = 0x0002;
inline constexpr DWORD SEM_NOOPENFILEERRORBOX = 0x8000;
inline constexpr int HeapEnableTerminationOnCorruption = 1;
inline constexpr DWORD COINIT_MULTITHREADED = 0;

// Writes the path of the running program, links resolved, into `buffer` (room for `size` characters
// with the terminating null) and returns its length. 0 on failure: ENAMETOOLONG if the room does
// not do, EILSEQ if the path is not valid UTF-8, otherwise what the system said; the buffer then
// holds the empty string. `module` must be null.
DWORD GetModuleFileNameW(const void* module, wchar_t* buffer, DWORD size);

// Shared libraries come from the folder `lib` beside the program through the run path that the
// linker wrote into it, and never from the current folder: nothing is left to set. Always true.
bool SetDllDirectoryW(const wchar_t* folder);

// No dialog ever stands between a failure and the program. What kills a Linux process unasked in
// their place is SIGPIPE: any non-zero mode makes writing to a closed pipe an error (EPIPE)
// instead. Programs started from here get the signal's default back. Returns the previous mode.
DWORD SetErrorMode(DWORD mode);

// abort() prints nothing of its own here, and whether a core is written stays the operator's choice
// (`ulimit -c`, systemd-coredump). Returns 0, the previous setting.
// NOLINTNEXTLINE(*-reserved-identifier,cert-dcl*): the name it has everywhere
unsigned _set_abort_behavior(unsigned flags, unsigned mask);

// The C library ends the process by itself when it finds its heap damaged. Always true.
bool HeapSetInformation(HANDLE heap, int informationClass, const void* information,
                        std::size_t length);

// There are no component objects to set up. Always 0.
int CoInitializeEx(const void* reserved, DWORD model);
void CoUninitialize();

// Sockets need no library to be loaded. Always 0.
int WSAStartup(unsigned version);
int WSACleanup();

// Opens the null device on every standard descriptor that is closed, so that no file opened later
// takes its place and gets what is meant for standard output. First of all in the process.
void OccupyStandardDescriptors();

// Makes the character type of the C library UTF-8 and its numbers those of the "C" locale, whatever
// the environment says: file names and arguments keep their bytes, and Lua its decimal point.
// To be called again after anything that sets the locale.
void PinTextEncoding();
