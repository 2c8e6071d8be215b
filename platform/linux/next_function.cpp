#include "platform/next_function.h"

#include <dlfcn.h>

void* NextFunction(const char* name) {
    return dlsym(RTLD_NEXT, name);
}
