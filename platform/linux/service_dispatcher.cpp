#include <cerrno>
#include <cstdlib>

#include "platform/service.h"

bool StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW*) {
    const char* socket = std::getenv("NOTIFY_SOCKET");
    const bool started = socket != nullptr && *socket != '\0';
    SetLastError(started ? EOPNOTSUPP : ERROR_FAILED_SERVICE_CONTROLLER_CONNECT);
    return false;
}
