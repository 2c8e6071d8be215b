// The clock is watched for as long as the main loop runs.

#include <wx/log.h>

#include "apps/zelka/zelka.h"
#include "platform/clock_change.h"
#include "zelka_core/text.h"

void CAgentApp::WatchClock() {
    const auto passOn = [this] {
        if (auto* frame = dynamic_cast<wxFrame*>(GetTopWindow())) {
            (void)frame->MSWWindowProc(WM_TIMECHANGE, 0, 0);
        }
    };
    if (const auto error = ClockChangeWatch::Begin(passOn, m_clockWatch)) {
        wxLogWarning("The clock is not watched: %s", ZelkaCore::FromUtf8(error.message()));
    }
}
