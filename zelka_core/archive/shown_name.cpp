#include "zelka_core/archive/shown_name.h"

#include <algorithm>

namespace ZelkaCore {

namespace {

bool IsDeceptive(wxUniChar character) {
    const auto code = character.GetValue();
    return code < 0x20 || (code >= 0x7f && code <= 0x9f) || (code >= 0x2028 && code <= 0x202e) ||
           (code >= 0x2066 && code <= 0x2069);
}

}  // namespace

bool HasDeceptiveCharacter(const wxString& name) {
    return std::any_of(name.begin(), name.end(), IsDeceptive);
}

wxString ShownName(const wxString& name) {
    wxString shown;
    for (const wxUniChar character : name) {
        if (IsDeceptive(character)) {
            shown += wxString::Format("\\u{%x}", static_cast<unsigned>(character.GetValue()));
        } else {
            shown += character;
        }
    }
    return shown;
}

}  // namespace ZelkaCore
