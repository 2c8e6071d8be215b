#include "platform/fips.h"

#include <fstream>

std::optional<long> SystemFipsFlag() {
    std::ifstream kernel("/proc/sys/crypto/fips_enabled");
    long flag = 0;
    return kernel >> flag ? std::optional(flag) : std::nullopt;
}
