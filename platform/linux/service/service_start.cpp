#include <unistd.h>

#include <cstdlib>
#include <string>

#include "platform/service.h"

// Both variables are handed on to whatever a service starts; the second one names the process that
// they were meant for.
std::string NameOfServiceStart() {
    const char* start = std::getenv("INVOCATION_ID");
    const char* process = std::getenv("SYSTEMD_EXEC_PID");
    if (start == nullptr || process == nullptr) {
        return {};
    }
    const bool isMeant =
        process == std::to_string(getpid()) || process == std::to_string(getppid());
    return isMeant ? start : std::string();
}
