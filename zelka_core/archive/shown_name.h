#pragma once

#include <wx/string.h>

namespace ZelkaCore {

// Names of files come from elsewhere. What could make one look like something else where it is
// shown is a control character (C0, C1, DEL), a line or paragraph separator, and whatever turns or
// embeds the direction of text.
bool HasDeceptiveCharacter(const wxString& name);

// The name with each of these as \u{HEX}.
wxString ShownName(const wxString& name);

}  // namespace ZelkaCore
