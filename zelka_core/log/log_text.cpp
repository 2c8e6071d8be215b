#include "zelka_core/log/log_text.h"

#include <algorithm>
#include <cstdio>

#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

// A character that is written out, and the bytes that it takes; 0 bytes for one that stays.
struct Unwanted {
    unsigned code = 0;
    std::size_t size = 0;
};

// Of the two or three bytes at the front of `text` if they are a control of Latin-1, a line
// separator or a direction override.
Unwanted UnwantedBeyondAscii(std::string_view text) {
    const auto byte = [text](std::size_t index) {
        return index < text.size() ? static_cast<unsigned char>(text[index]) : 0U;
    };
    if (byte(0) == 0xc2 && byte(1) >= 0x80 && byte(1) < 0xa0) {
        return {byte(1), 2};
    }
    if (byte(0) != 0xe2 || (byte(1) != 0x80 && byte(1) != 0x81) || byte(2) < 0x80) {
        return {};
    }
    const unsigned code = 0x2000U + (byte(1) - 0x80U) * 0x40U + (byte(2) - 0x80U);
    const bool isUnwanted =
        (code >= 0x2028 && code <= 0x202e) || (code >= 0x2066 && code <= 0x2069);
    return isUnwanted ? Unwanted{code, 3} : Unwanted{};
}

Unwanted UnwantedAtFront(std::string_view text) {
    const auto first = static_cast<unsigned char>(text[0]);
    if (first >= 0x80) {
        return UnwantedBeyondAscii(text);
    }
    const bool isUnwanted = (first < 0x20 && first != '\t' && first != '\n') || first == 0x7f;
    return isUnwanted ? Unwanted{first, 1} : Unwanted{};
}

std::string WrittenOut(unsigned code) {
    char text[16];
    if (code < 0x80) {
        (void)std::snprintf(text, sizeof text, "\\x%02x", code);
    } else {
        (void)std::snprintf(text, sizeof text, "\\u%04x", code);
    }
    return text;
}

// With `lineEnd` in the place of every line end.
std::string Harmless(std::string_view text, const char* lineEnd) {
    std::string harmless;
    harmless.reserve(text.size());
    while (!text.empty()) {
        const Unwanted unwanted = UnwantedAtFront(text);
        if (unwanted.size != 0) {
            harmless += WrittenOut(unwanted.code);
        } else if (text[0] == '\n') {
            harmless += lineEnd;
        } else {
            harmless += text[0];
        }
        text.remove_prefix(std::max(unwanted.size, std::size_t{1}));
    }
    return harmless;
}

}  // namespace

std::string LogText(std::string_view record) {
    return Harmless(record, "\n\t");
}

std::string PlainText(std::string_view text) {
    return Harmless(text, "\n");
}

std::string BoundedLogText(std::string_view text, std::size_t limit) {
    if (text.size() <= limit) {
        return std::string(text);
    }
    const std::string_view kept = WholeCharacters(text.substr(0, limit));
    return std::string(kept) + " ... (" + std::to_string(text.size() - kept.size()) +
           " bytes more)";
}

}  // namespace ZelkaCore
