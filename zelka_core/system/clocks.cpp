#include "zelka_core/system/clocks.h"

#include <chrono>
#include <ctime>

namespace ZelkaCore {

std::int64_t TimeNowMillis() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

unsigned int SystemTickCount() {
    timespec now = {};
    (void)clock_gettime(CLOCK_BOOTTIME, &now);  // fails for an unknown clock only
    const auto millis = std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
    return static_cast<unsigned int>(static_cast<std::uint64_t>(millis));
}

}  // namespace ZelkaCore
