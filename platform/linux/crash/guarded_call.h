#pragma once

#include <cstddef>

namespace crash {

// Calls `function` and comes back even if it touches memory that is not there: then the answer is
// false. In the signal handler or the process that writes a dump: one call at a time. Other threads
// of the process that fault meanwhile wait for its end.
bool CallDespiteFaults(void (*function)(void*), void* argument);

}  // namespace crash
