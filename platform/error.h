#pragma once

#include <cstdint>
#include <system_error>

// Errors of the platform's operations. One that can fail answers a std::error_code: empty for
// success, else an `errno` value of the C library, or one of the few below that the system has no
// number for. Its message() says what is wrong, for an operator to read. An operation that fails
// leaves its outputs as they were.

using DWORD = std::uint32_t;

enum class PlatformError {
    kNotRegularFile = 1001,
    kNeitherFolderNorFile = 1002,
    kNotToBeStopped = 1003,
    kStillThere = 1004,
    kLeavesFolder = 1005,
    kReservedPlace = 1006,
    kReplaced = 1007,
    kOwnedByOthers = 1008,
    kOpenToOthers = 1009,
    // Known by this number: the process was not started by a service manager.
    kNoServiceManager = 1063,
};

template <>
struct std::is_error_code_enum<PlatformError> : std::true_type {};

std::error_code make_error_code(PlatformError error);

// The value of `errno`, as the last call of the C library left it.
std::error_code LastSystemError();
