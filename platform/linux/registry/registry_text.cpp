#include "platform/linux/registry/registry_text.h"

#include "platform/regkey.h"

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::string_view Trimmed(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r\n";
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

wxString Trimmed(wxString text) {
    return text.Trim(true).Trim(false);
}

// @ stands for the empty name of the key's default value.
wxString CanonicalValueName(const wxString& name) {
    return name == "@" ? wxString() : name.Lower();
}

bool IsAtOrBelow(const wxString& key, const wxString& top) {
    return key.StartsWith(top) && (key.length() == top.length() || key[top.length()] == '\\');
}

}  // namespace

wxString CanonicalRegistryKey(const wxString& path) {
    const wxString given = path.BeforeFirst('\\');
    std::size_t root = 0;
    while (root < wxRegKey::nStdKeys && given.CmpNoCase(wxRegKey::GetStdKeyName(root)) != 0 &&
           given.CmpNoCase(wxRegKey::GetStdKeyShortName(root)) != 0) {
        ++root;
    }
    if (root == wxRegKey::nStdKeys) {
        return {};
    }
    wxString key = wxRegKey::GetStdKeyName(root);
    bool partBegins = true;
    for (const wxUniChar c : path.Mid(given.length())) {
        if (c == '\\') {
            partBegins = true;
            continue;
        }
        if (partBegins) {
            key += '\\';
            partBegins = false;
        }
        key += c;
    }
    return key.Lower();
}

bool RegistryReader::Next() {
    if (m_rest.empty()) {
        return false;
    }
    const std::size_t end = m_rest.find('\n');
    const std::size_t length = end == std::string_view::npos ? m_rest.size() : end + 1;
    std::string_view text = m_rest.substr(0, length);
    m_rest.remove_prefix(length);
    m_line = Line{.number = m_line.number + 1, .text = text};
    if (text.starts_with(kByteOrderMark)) {  // further down when files were joined
        text.remove_prefix(kByteOrderMark.size());
    }
    Classify(Trimmed(text));
    return true;
}

void RegistryReader::Classify(std::string_view bytes) {
    if (bytes.empty()) {
        return;
    }
    if (bytes.front() == ';' || bytes.front() == '#') {
        m_line.kind = Kind::Comment;
        return;
    }
    const wxString text = wxString::FromUTF8(bytes.data(), bytes.size());
    const bool isGroup = bytes.front() == '[';
    if (isGroup) {
        m_key.clear();  // whatever is wrong with the line, what follows is not of the group before
    }
    if (text.utf8_string() != bytes) {  // the framework reads more than it could write back
        Reject("it is not valid UTF-8");
    } else if (bytes.find('\0') != std::string_view::npos) {
        Reject("it holds a null character");
    } else if (isGroup) {
        ReadGroup(text);
    } else {
        ReadValue(text);
    }
}

void RegistryReader::ReadGroup(const wxString& text) {
    if (!text.EndsWith("]")) {
        return Reject("']' is missing at its end; the values below it are skipped");
    }
    m_key = CanonicalRegistryKey(text.Mid(1, text.length() - 2));
    if (m_key.empty()) {
        return Reject("its root key is not known; the values below it are skipped");
    }
    m_line.kind = Kind::Group;
}

void RegistryReader::ReadValue(const wxString& text) {
    if (text.Find('=') == wxNOT_FOUND) {
        return Reject("it is neither [key] nor name=value nor a comment");
    }
    if (m_key.empty()) {
        return Reject("the value stands below no key");
    }
    m_line.kind = Kind::Value;
    m_line.name = CanonicalValueName(Trimmed(text.BeforeFirst('=')));
    m_line.data = Trimmed(text.AfterFirst('='));
}

void RegistryReader::Reject(const char* problem) {
    m_line.kind = Kind::Malformed;
    m_line.problem = problem;
}

bool HasRegistryKey(std::string_view text, const wxString& key) {
    RegistryReader reader(text);
    while (reader.Next()) {
        if (reader.Current().kind == RegistryReader::Kind::Group &&
            IsAtOrBelow(reader.Key(), key)) {
            return true;
        }
    }
    return false;
}

std::optional<RegistryValue> FindRegistryValue(std::string_view text, const wxString& key,
                                               const wxString& name) {
    const wxString wanted = CanonicalValueName(name);
    std::optional<RegistryValue> found;
    RegistryReader reader(text);
    while (reader.Next()) {
        const RegistryReader::Line& line = reader.Current();
        if (line.kind == RegistryReader::Kind::Value && reader.Key() == key &&
            line.name == wanted) {
            found = RegistryValue{.data = line.data, .line = line.number};
        }
    }
    return found;
}

std::string WithoutRegistryKey(std::string_view text, const wxString& key) {
    std::string kept;
    RegistryReader reader(text);
    while (reader.Next()) {
        const RegistryReader::Line& line = reader.Current();
        const bool isRemark = line.kind == RegistryReader::Kind::Comment ||
                              line.kind == RegistryReader::Kind::Malformed;
        if (isRemark || reader.Key().empty() || !IsAtOrBelow(reader.Key(), key)) {
            kept += line.text;
        }
    }
    return kept;
}
