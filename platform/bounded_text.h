#pragma once

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

// UTF-8 text put together in room that somebody else owns, without allocating: safe in a signal
// handler. What does not fit is cut off between two characters, and nothing is added behind a cut.
class BoundedText {
  public:
    BoundedText(char* room, std::size_t size) : m_room(room), m_size(size) {}

    BoundedText& Add(std::string_view text) {
        const std::size_t room = m_isCut ? 0 : m_size - m_length;
        if (text.size() > room) {
            m_isCut = true;
            text = Front(text, room);
        }
        (void)std::copy(text.begin(), text.end(), m_room + m_length);
        m_length += text.size();
        return *this;
    }

    BoundedText& Add(std::int64_t number) { return AddNumber(number, 10); }

    BoundedText& AddHex(std::uint64_t number) { return Add("0x").AddNumber(number, 16); }

    // The text up to its null, `most` bytes of it at most, with a '?' for each control character.
    BoundedText& AddShown(const char* text, std::size_t most) {
        const std::size_t length = strnlen(text, most + 1);
        const std::size_t begin = m_length;
        (void)Add(length > most ? Front({text, length}, most) : std::string_view(text, length));
        std::replace_if(
            m_room + begin, m_room + m_length,
            [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }, '?');
        return *this;
    }

    [[nodiscard]] std::size_t Length() const { return m_length; }
    [[nodiscard]] std::string_view View() const { return {m_room, m_length}; }

  private:
    // Whole characters from the front of a text that is longer: `most` bytes of them at most.
    static std::string_view Front(std::string_view text, std::size_t most) {
        while (most > 0 && (static_cast<unsigned char>(text[most]) & 0xC0U) == 0x80) {
            --most;
        }
        return text.substr(0, most);
    }

    template <class Number>
    BoundedText& AddNumber(Number number, int base) {
        std::array<char, 24> digits{};
        const auto end =
            std::to_chars(digits.data(), digits.data() + digits.size(), number, base).ptr;
        return Add({digits.data(), static_cast<std::size_t>(end - digits.data())});
    }

    char* m_room;
    std::size_t m_size;
    std::size_t m_length = 0;
    bool m_isCut = false;
};
