#include <string>

#include "fuzz/fuzz_target.h"
#include "platform/linux/registry/registry_text.h"

namespace {

constexpr int kLinesCompared = 64;

std::optional<wxString> DataOf(std::string_view text, const wxString& key, const wxString& name) {
    const auto found = FindRegistryValue(text, key, name);
    return found ? std::optional(found->data) : std::nullopt;
}

// What the text says of keys that do not go with `removed` is said by `rest`, too.
void RequireTheSameOfOtherKeys(std::string_view text, std::string_view rest,
                               const wxString& removed) {
    RegistryReader reader(text);
    for (int lines = 0; lines < kLinesCompared && reader.Next(); ++lines) {
        const wxString& key = reader.Key();
        if (key.empty() || (key + '\\').StartsWith(removed + '\\')) {
            continue;
        }
        Require(HasRegistryKey(rest, key));
        const wxString& name = reader.Current().name;
        Require(DataOf(text, key, name) == DataOf(rest, key, name));
    }
}

}  // namespace

// Every byte belongs to one line; a key that is removed is gone, with nothing else.
void RunOnInput(std::string_view input) {
    std::string joined;
    wxString key;
    RegistryReader reader(input);
    while (reader.Next()) {
        joined += reader.Current().text;
        if (key.empty()) {
            key = reader.Key();
        }
    }
    Require(joined == input);
    if (key.empty()) {
        return;
    }
    Require(CanonicalRegistryKey(key) == key);
    const std::string rest = WithoutRegistryKey(input, key);
    Require(!HasRegistryKey(rest, key));
    RequireTheSameOfOtherKeys(input, rest, key);
}
