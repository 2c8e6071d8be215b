#include "apps/zelka/host/raw_arguments.h"

#include <algorithm>

#include "zelka_core/text.h"

using ZelkaCore::IsValidUtf8;

namespace {

std::vector<std::string> g_raw;

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

wchar_t** FrameworkArguments() {
    static std::vector<std::wstring> copies;
    static std::vector<wchar_t*> pointers;
    for (std::string text : g_raw) {
        if (!IsValidUtf8(text)) {
            std::replace_if(
                text.begin(), text.end(), [](char c) { return (c & 0x80) != 0; }, '?');
        }
        copies.push_back(ZelkaCore::FromUtf8(text).ToStdWstring());
    }
    pointers.reserve(copies.size() + 1);
    for (std::wstring& copy : copies) {
        pointers.push_back(copy.data());
    }
    pointers.push_back(nullptr);
    return pointers.data();
}
