#include "zelka_core/text.h"

#include <wx/strconv.h>

#include <algorithm>
#include <cstddef>

namespace ZelkaCore {

namespace {

// What may follow a first byte: the number of further bytes and the range of the first of them.
struct Utf8Lead {
    std::size_t following;
    unsigned char low = 0x80;
    unsigned char high = 0xbf;
};

constexpr std::size_t kNoLead = 4;

Utf8Lead LeadOf(unsigned char byte) {
    switch (byte) {
        case 0xe0:
            return {.following = 2, .low = 0xa0};
        case 0xed:
            return {.following = 2, .high = 0x9f};
        case 0xf0:
            return {.following = 3, .low = 0x90};
        case 0xf4:
            return {.following = 3, .high = 0x8f};
        default:
            break;
    }
    if (byte < 0x80) {
        return {.following = 0};
    }
    if (byte < 0xc2 || byte > 0xf4) {
        return {.following = kNoLead};
    }
    return {.following = byte < 0xe0 ? 1U : byte < 0xf0 ? 2U : 3U};
}

}  // namespace

bool IsValidUtf8(std::string_view bytes) {
    while (!bytes.empty()) {
        const Utf8Lead lead = LeadOf(static_cast<unsigned char>(bytes[0]));
        if (lead.following == kNoLead || bytes.size() <= lead.following) {
            return false;
        }
        for (std::size_t i = 1; i <= lead.following; ++i) {
            const auto byte = static_cast<unsigned char>(bytes[i]);
            const bool second = i == 1;
            if (byte < (second ? lead.low : 0x80) || byte > (second ? lead.high : 0xbf)) {
                return false;
            }
        }
        bytes.remove_prefix(lead.following + 1);
    }
    return true;
}

std::string_view WholeCharacters(std::string_view text) {
    constexpr std::size_t kLongestPart = 3;
    for (std::size_t size = 1; size <= std::min(text.size(), kLongestPart); ++size) {
        const auto byte = static_cast<unsigned char>(text[text.size() - size]);
        if ((byte & 0xc0U) != 0x80) {
            const std::size_t following = LeadOf(byte).following;
            text.remove_suffix(following != kNoLead && following >= size ? size : 0);
            break;
        }
    }
    return text;
}

std::string ToUtf8(const wxString& text) {
    const wxScopedCharBuffer utf8 = text.utf8_str();
    return {utf8.data(), utf8.length()};
}

wxString FromUtf8(const std::string& text) {
    // The framework's own check lets values above U+10FFFF pass, which do not convert back.
    if (IsValidUtf8(text)) {
        return wxString::FromUTF8Unchecked(text.data(), text.size());
    }
    return {text.data(), wxConvISO8859_1, text.size()};
}

}  // namespace ZelkaCore
