#include "platform/regkey.h"

#include <wx/log.h>

#include <array>
#include <cctype>
#include <charconv>
#include <string>
#include <system_error>

#include "platform/linux/registry/registry_file.h"
#include "platform/linux/registry/registry_text.h"

namespace {

struct StdKeyNames {
    const wxChar* full;
    const wxChar* brief;
};

constexpr std::array<StdKeyNames, wxRegKey::nStdKeys> kStdKeys{{
    {L"HKEY_CLASSES_ROOT", L"HKCR"},
    {L"HKEY_CURRENT_USER", L"HKCU"},
    {L"HKEY_LOCAL_MACHINE", L"HKLM"},
    {L"HKEY_USERS", L"HKU"},
    {L"HKEY_PERFORMANCE_DATA", L"HKPD"},
    {L"HKEY_CURRENT_CONFIG", L"HKCC"},
    {L"HKEY_DYN_DATA", L"HKDD"},
}};

// Of an existing file that cannot be read the caller learns nothing: it counts as empty.
std::string Content() {
    return ReadRegistryFile(RegistryFilePath()).value_or(std::string());
}

bool ParseNumber(const std::string& text, long& number) {
    const bool isHex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X') &&
                       std::isxdigit(static_cast<unsigned char>(text[2])) != 0;
    const char* begin = text.data() + (isHex ? 2 : 0);
    const char* end = text.data() + text.size();
    long parsed = 0;
    const auto [stop, error] = std::from_chars(begin, end, parsed, isHex ? 16 : 10);
    if (error != std::errc() || stop != end) {
        return false;
    }
    number = parsed;
    return true;
}

bool RemoveKey(const wxString& key) {
    const std::string& path = RegistryFilePath();
    const auto content = ReadRegistryFile(path);
    if (!content) {
        wxLogWarning("Registry key %s was not removed: the registry could not be read", key);
        return false;
    }
    if (!HasRegistryKey(*content, key)) {
        return true;
    }
    if (key.Freq('\\') < 2) {
        wxLogWarning("Registry key %s was not removed: it is too close to its root", key);
        return false;
    }
    if (const auto error = ReplaceRegistryFile(path, WithoutRegistryKey(*content, key))) {
        wxLogWarning("Registry key %s was not removed: the file could not be replaced: %s", key,
                     wxString::FromUTF8(error.message()));
        return false;
    }
    return true;
}

}  // namespace

const wxChar* wxRegKey::GetStdKeyName(std::size_t key) {
    return key < nStdKeys ? kStdKeys[key].full : L"";
}

const wxChar* wxRegKey::GetStdKeyShortName(std::size_t key) {
    return key < nStdKeys ? kStdKeys[key].brief : L"";
}

void wxRegKey::SetName(const wxString& path) {
    m_key = CanonicalRegistryKey(path);
    m_isOpened = false;
}

void wxRegKey::SetName(StdKey root, const wxString& name) {
    SetName(wxString(GetStdKeyName(root)) + '\\' + name);
}

bool wxRegKey::Open(AccessMode mode) {
    m_isOpened = Exists() && (mode == Read || CanReplaceRegistryFile(RegistryFilePath()));
    return m_isOpened;
}

bool wxRegKey::Exists() const {
    const bool isRoot = !m_key.empty() && m_key.Find('\\') == wxNOT_FOUND;
    return isRoot || (!m_key.empty() && HasRegistryKey(Content(), m_key));
}

bool wxRegKey::HasSubKey(const wxString& name) const {
    return !m_key.empty() && wxRegKey(m_key + '\\' + name).Exists();
}

bool wxRegKey::HasValue(const wxString& name) const {
    return !m_key.empty() && FindRegistryValue(Content(), m_key, name).has_value();
}

bool wxRegKey::QueryValue(const wxString& name, wxString& data) const {
    if (m_key.empty()) {
        return false;
    }
    const auto found = FindRegistryValue(Content(), m_key, name);
    if (found) {
        data = found->data;
    }
    return found.has_value();
}

bool wxRegKey::QueryValue(const wxString& name, long* data) const {
    wxString text;
    return QueryValue(name, text) && ParseNumber(text.utf8_string(), *data);
}

std::size_t wxRegKey::LineOf(const wxString& name) const {
    const auto found = m_key.empty() ? std::nullopt : FindRegistryValue(Content(), m_key, name);
    return found ? found->line : 0;
}

bool wxRegKey::DeleteKey(const wxString& name) {
    const wxString key = m_key.empty() ? m_key : CanonicalRegistryKey(m_key + '\\' + name);
    if (key == m_key) {
        wxLogWarning("A registry key without a name was not removed");
        return false;
    }
    return RemoveKey(key);
}

bool wxRegKey::DeleteSelf() {
    m_isOpened = false;
    if (m_key.empty()) {
        return true;  // it does not exist
    }
    return RemoveKey(m_key);
}
