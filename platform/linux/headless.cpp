#include "platform/headless.h"

#include <algorithm>
#include <vector>

namespace {

// The top-level windows that are alive, oldest first. Main thread only.
std::vector<wxFrame*>& TopLevelWindows() {
    static std::vector<wxFrame*> windows;
    return windows;
}

}  // namespace

void wxAppBase::CleanUp() {
    m_exitOnFrameDelete = false;  // the loop is over
    while (!TopLevelWindows().empty()) {
        delete TopLevelWindows().back();
    }
    wxAppConsole::CleanUp();
}

wxFrame::wxFrame(wxWindow* parent, int id, const wxString& title)
    : m_parent(parent), m_id(id), m_title(title) {
    TopLevelWindows().push_back(this);
}

wxFrame::~wxFrame() {
    auto& windows = TopLevelWindows();
    windows.erase(std::remove(windows.begin(), windows.end(), this), windows.end());
    auto* app = dynamic_cast<wxAppBase*>(wxAppConsole::GetInstance());
    if (app == nullptr) {
        return;
    }
    if (app->GetTopWindow() == this) {
        app->SetTopWindow(nullptr);
    }
    if (windows.empty() && app->GetExitOnFrameDelete()) {
        app->ExitMainLoop();
    }
}

bool wxFrame::Show(bool) {
    return false;
}

WXLRESULT wxFrame::MSWWindowProc(WXUINT, WXWPARAM, WXLPARAM) {
    return 0;
}
