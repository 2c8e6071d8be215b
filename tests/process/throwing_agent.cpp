// The agent, but for an exception from the place that the variable THROW_FROM names.

#include <wx/timer.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "apps/zelka/zelka.h"

namespace {

bool ThrowsFrom(const std::string& place) {
    return place == std::getenv("THROW_FROM");
}

}  // namespace

class ThrowingAgent : public CAgentApp {
  public:
    bool OnInit() override {
        const bool done = CAgentApp::OnInit();
        return ThrowsFrom("OnInit") ? throw std::runtime_error("boom in OnInit") : done;
    }

    int OnRun() override {
        Bind(wxEVT_TIMER, [](wxTimerEvent&) { throw std::string("boom in a timer"); });
        wxTimer timer(this);
        if (ThrowsFrom("OnRun")) {
            throw -7;
        }
        if (ThrowsFrom("a call")) {
            CallAfter([] { throw std::logic_error("boom in a call"); });
        }
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

// The program's own entry, for this application.
#define CAgentApp ThrowingAgent
#include "apps/zelka/main.cpp"  // NOLINT(bugprone-suspicious-include)
