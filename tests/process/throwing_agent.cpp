// The agent, but for an exception from the place that the variable THROW_FROM names.

#include <wx/init.h>
#include <wx/log.h>
#include <wx/timer.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "apps/zelka/host/raw_arguments.h"
#include "apps/zelka/zelka.h"
#include "platform/process_setup.h"

namespace {

bool ThrowsFrom(const char* place) {
    const char* chosen = std::getenv("THROW_FROM");
    return chosen != nullptr && chosen == std::string(place);
}

}  // namespace

class ThrowingAgent : public CAgentApp {
  public:
    bool OnInit() override {
        const bool done = CAgentApp::OnInit();
        if (ThrowsFrom("OnInit")) {
            throw std::runtime_error("boom in OnInit");
        }
        return done;
    }

    int OnRun() override {
        if (ThrowsFrom("OnRun")) {
            throw -7;
        }
        if (ThrowsFrom("a call")) {
            CallAfter([] { throw std::logic_error("boom in a call"); });
        }
        Bind(wxEVT_TIMER, [](wxTimerEvent&) { throw std::string("boom in a timer"); });
        wxTimer timer(this);
        if (ThrowsFrom("a timer")) {
            (void)timer.StartOnce(1);
        }
        return CAgentApp::OnRun();
    }

    int OnExit() override {
        (void)std::puts("OnExit");
        return CAgentApp::OnExit();
    }

    ~ThrowingAgent() override { (void)std::puts("destructor"); }
};

wxIMPLEMENT_APP_NO_MAIN(ThrowingAgent);

int main(int argc, char** argv) {
    wxTheAssertHandler = nullptr;
    wxLog::SetLogLevel(wxLOG_Info);
    PinTextEncoding();
    KeepRawArguments(argc, argv);
    return wxEntry(argc, FrameworkArguments());
}
