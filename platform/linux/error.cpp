#include "platform/error.h"

namespace {
thread_local DWORD t_lastError = 0;
}

DWORD GetLastError() {
    return t_lastError;
}

void SetLastError(DWORD code) {
    t_lastError = code;
}
