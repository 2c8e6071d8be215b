#include "zelka_core/system/clocks.h"

#include <chrono>

#include "platform/clock.h"

namespace ZelkaCore {

namespace {

using Millis = std::chrono::duration<double, std::milli>;

}  // namespace

std::int64_t TimeNowMillis() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

double TimeOfDayMillis() {
    return Millis(std::chrono::system_clock::now().time_since_epoch()).count();
}

double MonotonicMillis() {
    return Millis(std::chrono::steady_clock::now().time_since_epoch()).count();
}

unsigned int SystemTickCount() {
    return static_cast<unsigned int>(MillisecondsSinceBoot());
}

}  // namespace ZelkaCore
