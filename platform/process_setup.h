#pragma once

#include <cstddef>
#include <string>
#include <system_error>

// One-time settings of the process, made before a second thread exists.
//
// What other systems have to be told, and this one does by itself, has no operation here:
//
//     library search     the folder `lib` beside the program is in the run path that the linker
//                        wrote into it; the current folder is never searched
//     damaged heap       the C library ends the process when it finds its heap damaged
//     abort()            prints nothing of its own; whether a core is written stays the operator's
//                        choice (`ulimit -c`, systemd-coredump)
//     component objects  there are none to set up
//     sockets            need no library to be loaded

// The path of the running program in UTF-8, links resolved. EILSEQ if it is not UTF-8.
[[nodiscard]] std::error_code GetModuleFileNameW(std::string& path);

// No dialog ever stands between a failure and the program. What kills a Linux process unasked in
// its place are SIGPIPE and SIGXFSZ: from here on writing to a closed pipe, and beyond the limit of
// a file's size, is an error. Programs started from here get the signals' defaults back.
void SetErrorMode();

// Whether this process may open that many more descriptors; what the system says if not.
[[nodiscard]] std::error_code CheckFreeDescriptors(std::size_t count);

// Opens the null device on every standard descriptor that is closed, so that no file opened later
// takes its place and gets what is meant for standard output. First of all in the process.
void OccupyStandardDescriptors();

// Makes the character type of the C library UTF-8 and its numbers those of the "C" locale, whatever
// the environment says: file names and arguments keep their bytes, and Lua its decimal point.
// To be called again after anything that sets the locale.
void PinTextEncoding();
