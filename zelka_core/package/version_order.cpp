#include "zelka_core/package/version_order.h"

#include <algorithm>
#include <cstddef>

namespace ZelkaCore {

namespace {

constexpr std::size_t kLongest = 64;
constexpr std::size_t kLongestEpoch = 9;

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

bool IsLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

struct Parts {
    std::string_view epoch;
    std::string_view upstream;
    std::string_view revision;
};

Parts Split(std::string_view version) {
    Parts parts;
    if (const auto colon = version.find(':'); colon != std::string_view::npos) {
        parts.epoch = version.substr(0, colon);
        version.remove_prefix(colon + 1);
    }
    const auto dash = version.rfind('-');
    parts.upstream = version.substr(0, dash);
    if (dash != std::string_view::npos) {
        parts.revision = version.substr(dash + 1);
    }
    return parts;
}

// Where a character that is no digit stands in the order; the end of the text counts as a digit.
int Weight(std::string_view text) {
    if (text.empty() || IsDigit(text.front())) {
        return 0;
    }
    if (text.front() == '~') {
        return -1;
    }
    return static_cast<unsigned char>(text.front()) + (IsLetter(text.front()) ? 0 : 0x100);
}

std::weak_ordering TakeWords(std::string_view& a, std::string_view& b) {
    while ((!a.empty() && !IsDigit(a.front())) || (!b.empty() && !IsDigit(b.front()))) {
        if (const auto order = Weight(a) <=> Weight(b); order != std::strong_ordering::equal) {
            return order;
        }
        a.remove_prefix(1);
        b.remove_prefix(1);
    }
    return std::weak_ordering::equivalent;
}

// The digits in front, without leading zeros.
std::string_view TakeNumber(std::string_view& text) {
    const auto* const end = std::find_if_not(text.begin(), text.end(), IsDigit);
    std::string_view number = text.substr(0, static_cast<std::size_t>(end - text.begin()));
    text.remove_prefix(number.size());
    number.remove_prefix(std::min(number.find_first_not_of('0'), number.size()));
    return number;
}

std::weak_ordering CompareNumbers(std::string_view a, std::string_view b) {
    return a.size() == b.size() ? std::weak_ordering(a <=> b)
                                : std::weak_ordering(a.size() <=> b.size());
}

std::weak_ordering ComparePart(std::string_view a, std::string_view b) {
    while (!a.empty() || !b.empty()) {
        if (const auto order = TakeWords(a, b); order != std::weak_ordering::equivalent) {
            return order;
        }
        const std::string_view left = TakeNumber(a);
        if (const auto order = CompareNumbers(left, TakeNumber(b));
            order != std::weak_ordering::equivalent) {
            return order;
        }
    }
    return std::weak_ordering::equivalent;
}

}  // namespace

bool IsVersion(std::string_view text) {
    const Parts parts = Split(text);
    const bool hasEpoch = text.find(':') != std::string_view::npos;
    const auto isAllowed = [](char c) {
        return IsDigit(c) || IsLetter(c) || c == '.' || c == '+' || c == '-' || c == '~';
    };
    return text.size() <= kLongest && !parts.upstream.empty() && IsDigit(parts.upstream.front()) &&
           (!hasEpoch || !parts.epoch.empty()) && parts.epoch.size() <= kLongestEpoch &&
           std::all_of(parts.epoch.begin(), parts.epoch.end(), IsDigit) &&
           std::all_of(parts.upstream.begin(), parts.upstream.end(), isAllowed) &&
           std::all_of(parts.revision.begin(), parts.revision.end(), isAllowed) &&
           text.back() != '-';
}

std::weak_ordering CompareVersions(std::string_view a, std::string_view b) {
    const Parts left = Split(a);
    const Parts right = Split(b);
    for (const auto part : {&Parts::epoch, &Parts::upstream, &Parts::revision}) {
        if (const auto order = ComparePart(left.*part, right.*part);
            order != std::weak_ordering::equivalent) {
            return order;
        }
    }
    return std::weak_ordering::equivalent;
}

}  // namespace ZelkaCore
