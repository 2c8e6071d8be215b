#pragma once

#include <cstdint>

// Error codes of the platform's operations. A code is an `errno` value of the C library, except for
// the few that the logic tests by number; those keep the numbers under which they are known.

using DWORD = std::uint32_t;

inline constexpr DWORD WAIT_TIMEOUT = 258;
inline constexpr DWORD ERROR_IO_INCOMPLETE = 996;
inline constexpr DWORD ERROR_IO_PENDING = 997;
inline constexpr DWORD ERROR_FAILED_SERVICE_CONTROLLER_CONNECT = 1063;

// The code that the last failed operation of this layer left on the calling thread; 0 before any.
// A success leaves it alone.
DWORD GetLastError();
void SetLastError(DWORD code);
