#include "apps/zelkctl/quantity.h"

#include <array>
#include <cstdio>
#include <ctime>

namespace {

struct Unit {
    std::int64_t length;  // in milliseconds
    const char* name;
};

constexpr std::array kUnits{Unit{86'400'000, "d"}, Unit{3'600'000, "h"}, Unit{60'000, "min"},
                            Unit{1'000, "s"}, Unit{1, "ms"}};

std::string Amount(std::int64_t number, const char* unit) {
    return std::to_string(number) + " " + unit;
}

}  // namespace

std::string DurationText(std::int64_t milliseconds) {
    for (std::size_t i = 0; i + 1 < kUnits.size(); ++i) {
        const Unit& unit = kUnits[i];
        const Unit& next = kUnits[i + 1];
        if (milliseconds < unit.length) {
            continue;
        }
        const std::string text = Amount(milliseconds / unit.length, unit.name);
        const std::int64_t rest = milliseconds % unit.length / next.length;
        // Nobody wants to know the milliseconds behind seconds.
        return rest == 0 || next.length == 1 ? text : text + " " + Amount(rest, next.name);
    }
    return Amount(milliseconds, "ms");
}

std::string TimeText(std::int64_t milliseconds) {
    const std::time_t seconds = milliseconds / 1000;
    std::tm parts = {};
    char text[32];
    if (localtime_r(&seconds, &parts) == nullptr ||
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts) == 0) {
        return std::to_string(milliseconds);
    }
    return text;
}

std::string SizeText(std::int64_t bytes) {
    constexpr std::array kNames{"KiB", "MiB", "GiB", "TiB"};
    constexpr double kStep = 1024;
    if (bytes < 1024) {
        return Amount(bytes, "B");
    }
    double size = static_cast<double>(bytes) / kStep;
    std::size_t unit = 0;
    while (size >= kStep && unit + 1 < kNames.size()) {
        size /= kStep;
        ++unit;
    }
    char text[32];
    (void)std::snprintf(text, sizeof text, "%.1f %s", size, kNames[unit]);
    return text;
}
