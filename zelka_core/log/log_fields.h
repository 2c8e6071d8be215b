#pragma once

#include <wx/log.h>

#include <map>
#include <string>
#include <string_view>

namespace ZelkaCore {

// What a log record says besides its text: values (UTF-8) by their names.
using LogFields = std::map<std::string, std::string>;

// A letter, then letters, digits and underscores, all of ASCII; 64 at most.
bool IsLogFieldName(std::string_view name);

// The fields as they stand behind the text of a record, ` key=value` each, sorted by name. A value
// that is empty, or holds a blank, a quote, '=' or what the log writes out, stands in double
// quotes, in which a backslash begins an escape: `\"`, `\\`, `\n`, `\t`, `\x1b`, `\u2028`.
std::string LogFieldsText(const LogFields& fields);

// Writes a record of a script. Text and fields together are not larger than 64 KiB, of which the
// fields take half at most: what is beyond is counted, as BoundedLogText does. The value of a field
// that is named like a secret (zelka_core/secret_name.h) is not shown. Any thread.
void LogWithFields(wxLogLevel level, const std::string& text, const LogFields& fields);

// The fields that LogWithFields gave to a record: the first 100 of them, and not more than 64 KiB.
LogFields FieldsOf(const wxLogRecordInfo& info);

}  // namespace ZelkaCore
