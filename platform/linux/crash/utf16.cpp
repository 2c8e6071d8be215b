#include "platform/linux/crash/utf16.h"

#include <bit>
#include <cstdint>

namespace crash {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

// Takes one character off the front of `rest`.
char32_t NextCharacter(std::string_view& rest) {
    const auto lead = static_cast<std::uint8_t>(rest.front());
    rest.remove_prefix(1);
    if (lead < 0x80) {
        return lead;
    }
    const auto length = static_cast<std::size_t>(std::countl_one(lead));
    if (length < 2 || length > 4 || rest.size() < length - 1) {
        return kReplacement;
    }
    char32_t character = lead & (0x7FU >> length);
    for (std::size_t i = 0; i < length - 1; ++i) {
        const auto next = static_cast<std::uint8_t>(rest[i]);
        if ((next & 0xC0U) != 0x80) {
            return kReplacement;
        }
        character = (character << 6U) | (next & 0x3FU);
    }
    rest.remove_prefix(length - 1);
    const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
    return surrogate || character > 0x10FFFF ? kReplacement : character;
}

}  // namespace

std::size_t ToUtf16(std::string_view utf8, std::span<char16_t> target) {
    std::size_t length = 0;
    while (!utf8.empty() && length + 2 < target.size()) {
        const char32_t character = NextCharacter(utf8);
        if (character < 0x10000) {
            target[length++] = static_cast<char16_t>(character);
        } else {
            target[length++] = static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10U));
            target[length++] = static_cast<char16_t>(0xDC00 + ((character - 0x10000) & 0x3FFU));
        }
    }
    target[length] = u'\0';
    return length;
}

}  // namespace crash
