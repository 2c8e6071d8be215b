#include "zelka_core/log/system_error.h"

#include <wx/log.h>

#include "zelka_core/text.h"

namespace ZelkaCore {

void LogSystemError(const std::error_code& error, const wxString& what) {
    wxLogError("%s (error %d: %s)", what, error.value(), FromUtf8(error.message()));
}

}  // namespace ZelkaCore
