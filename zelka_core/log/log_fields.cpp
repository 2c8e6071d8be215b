#include "zelka_core/log/log_fields.h"

#include <wx/tokenzr.h>

#include <algorithm>

#include "zelka_core/log/log_text.h"
#include "zelka_core/secret_name.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

constexpr std::size_t kMaximumName = 64;
constexpr std::size_t kMaximumStored = 100;                // fields, of a record
constexpr std::size_t kMaximumText = kMaximumLogText / 2;  // bytes, of all fields of a line

// Under these a record carries the names, with a comma behind each, and the value of each name.
constexpr const char* kNames = "zelka.fields";
constexpr const char* kValue = "zelka.field.";

bool IsLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

std::string Quoted(const std::string& value) {
    std::string text = "\"";
    for (const char c : value) {
        if (c == '"' || c == '\\') {
            text += '\\';
        }
        if (c == '\n') {
            text += "\\n";
        } else if (c == '\t') {
            text += "\\t";
        } else {
            text += c;
        }
    }
    return LogText(text + '"');
}

bool NeedsQuotes(const std::string& value) {
    return value.empty() || value.find_first_of(" \t\n\"'=") != std::string::npos ||
           LogText(value) != value;
}

LogFields WithoutSecrets(const LogFields& fields) {
    LogFields shown;
    for (const auto& [name, value] : fields) {
        shown[name] = IsSecretName(name) ? kMasked : value;
    }
    return shown;
}

void Store(const LogFields& fields, wxLogRecordInfo& info) {
    wxString names;
    std::size_t size = 0;
    std::size_t count = 0;
    for (const auto& [name, value] : fields) {
        size += name.size() + value.size();
        ++count;
        if (size > kMaximumLogText || count > kMaximumStored) {
            break;
        }
        const wxString wideName = FromUtf8(name);
        names << wideName << ',';
        info.StoreValue(kValue + wideName, FromUtf8(value));
    }
    info.StoreValue(kNames, names);
}

}  // namespace

bool IsLogFieldName(std::string_view name) {
    const auto isAllowed = [](char c) { return IsLetter(c) || (c >= '0' && c <= '9') || c == '_'; };
    return !name.empty() && name.size() <= kMaximumName && IsLetter(name[0]) &&
           std::all_of(name.begin(), name.end(), isAllowed);
}

std::string LogFieldsText(const LogFields& fields) {
    std::string text;
    for (const auto& [name, value] : fields) {
        text += ' ';
        text += name;
        text += '=';
        text += NeedsQuotes(value) ? Quoted(value) : value;
    }
    return text;
}

void LogWithFields(wxLogLevel level, const std::string& text, const LogFields& fields) {
    if (!wxLog::IsLevelEnabled(level, wxASCII_STR(wxLOG_COMPONENT))) {
        return;
    }
    const LogFields shown = WithoutSecrets(fields);
    const std::string behind = BoundedLogText(LogFieldsText(shown), kMaximumText);
    std::string front = BoundedLogText(text, kMaximumLogText - behind.size());
    std::replace(front.begin(), front.end(), '\0', '?');  // targets may end a text at a null
    wxLogRecordInfo info(nullptr, 0, nullptr, wxLOG_COMPONENT);
    info.timestampMS = wxGetUTCTimeMillis().GetValue();
    if (!shown.empty()) {
        Store(shown, info);
    }
    wxLog::OnLog(level, FromUtf8(front) + FromUtf8(behind), info);
}

LogFields FieldsOf(const wxLogRecordInfo& info) {
    LogFields fields;
    wxString names;
    (void)info.GetStrValue(kNames, &names);
    wxStringTokenizer list(names, ",", wxTOKEN_STRTOK);
    while (list.HasMoreTokens()) {
        const wxString name = list.GetNextToken();
        wxString value;
        (void)info.GetStrValue(kValue + name, &value);
        fields[ToUtf8(name)] = ToUtf8(value);
    }
    return fields;
}

}  // namespace ZelkaCore
