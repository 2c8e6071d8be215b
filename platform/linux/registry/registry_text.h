#pragma once

#include <wx/string.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

// The text of the registry file, of any content, without the file.

// One spelling for all names of a key: lower case, the root by its long name, no empty parts. Empty
// if the path does not begin with a standard root key. Keys below are in that form.
wxString CanonicalRegistryKey(const wxString& path);

// Walks through the lines of a text, which has to outlive it.
class RegistryReader {
  public:
    enum class Kind { Comment, Blank, Group, Value, Malformed };

    struct Line {
        std::size_t number = 0;  // counts from 1
        std::string_view text;   // with its line end
        Kind kind = Kind::Blank;
        const char* problem = nullptr;  // of a malformed line: what is wrong with it
        wxString name{};                // of a value, canonical: lower case, empty for the default
        wxString data{};                // of a value
    };

    explicit RegistryReader(std::string_view text) : m_rest(text) {}

    // False at the end of the text.
    bool Next();
    [[nodiscard]] const Line& Current() const { return m_line; }
    // The key whose group the current line begins or stands in; empty outside of any.
    [[nodiscard]] const wxString& Key() const { return m_key; }

  private:
    void Classify(std::string_view bytes);
    void ReadGroup(const wxString& text);
    void ReadValue(const wxString& text);
    void Reject(const char* problem);

    std::string_view m_rest;
    Line m_line;
    wxString m_key;
};

// Whether the text has a group of the key or of one below it.
bool HasRegistryKey(std::string_view text, const wxString& key);

struct RegistryValue {
    wxString data;
    std::size_t line = 0;  // counts from 1
};

// The last value of that name, which is taken without regard to case.
std::optional<RegistryValue> FindRegistryValue(std::string_view text, const wxString& key,
                                               const wxString& name);

// The text without the groups of the key and of those below it; their comments and malformed lines
// stay.
std::string WithoutRegistryKey(std::string_view text, const wxString& key);
