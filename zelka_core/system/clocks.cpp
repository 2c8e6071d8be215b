#include "zelka_core/system/clocks.h"

#include <chrono>

#include "platform/clock.h"

namespace ZelkaCore {

std::int64_t TimeNowMillis() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

unsigned int SystemTickCount() {
    return static_cast<unsigned int>(MillisecondsSinceBoot());
}

}  // namespace ZelkaCore
