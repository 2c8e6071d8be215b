#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace ZelkaCore {

// What a crash dump tells without a debugger. Texts are UTF-8 as it stands in the file, whose owner
// may have written anything into them.
struct CrashReport {
    std::int64_t time = 0;  // seconds since 1970
    std::uint32_t signal = 0;
    std::string signalName;  // "SIGSEGV"
    std::uint32_t process = 0;
    std::uint32_t thread = 0;  // that faulted
    std::string application;
    std::string fault;         // in words; empty in dumps of old
    std::string lua;           // what Lua code ran, line by line; empty if none did
    std::string module;        // where the thread was, the file's path; empty if in none
    std::uint64_t offset = 0;  // in that module
};

// Reads the dump of a fault that this program or another instance of it has written. Trusts nothing
// in the file, and reads a bounded part of it. False with the reason in `fault` if it is no such
// dump, or damaged; `report` is untouched then.
bool ReadCrashReport(std::FILE* file, CrashReport& report, std::string& fault);

}  // namespace ZelkaCore
