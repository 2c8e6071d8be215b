#include "zelka_core/text.h"

#include <wx/strconv.h>

namespace ZelkaCore {

std::string ToUtf8(const wxString& text) {
    const wxScopedCharBuffer utf8 = text.utf8_str();
    return {utf8.data(), utf8.length()};
}

wxString FromUtf8(const std::string& text) {
    wxString converted = wxString::FromUTF8(text.data(), text.size());
    if (converted.empty() && !text.empty()) {
        converted = wxString(text.data(), wxConvISO8859_1, text.size());
    }
    return converted;
}

}  // namespace ZelkaCore
