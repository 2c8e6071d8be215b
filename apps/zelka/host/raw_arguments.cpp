#include "apps/zelka/host/raw_arguments.h"

#include <wx/string.h>

#include <algorithm>

namespace {

std::vector<std::string> g_raw;

bool IsValidUtf8(const std::string& text) {
    return text.empty() || !wxString::FromUTF8(text.data(), text.size()).empty();
}

}  // namespace

void KeepRawArguments(int argc, char** argv) {
    g_raw.assign(argv, argv + argc);
}

const std::vector<std::string>& RawArguments() {
    return g_raw;
}

std::optional<std::size_t> FirstInvalidOption() {
    const auto end = std::find(g_raw.begin(), g_raw.end(), "--");
    const auto invalid = std::find_if_not(g_raw.begin(), end, IsValidUtf8);
    if (invalid == end) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(invalid - g_raw.begin());
}

char** FrameworkArguments() {
    static std::vector<std::string> copies;
    static std::vector<char*> pointers;
    copies = g_raw;
    for (std::string& copy : copies) {
        if (!IsValidUtf8(copy)) {
            std::replace_if(
                copy.begin(), copy.end(), [](char c) { return (c & 0x80) != 0; }, '?');
        }
        pointers.push_back(copy.data());
    }
    pointers.push_back(nullptr);
    return pointers.data();
}
