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

// Throws the value whose place in the list is named.
template <typename... Values>
void ThrowOneOf(Values... values) {
    int place = 0;
    // NOLINTNEXTLINE(cert-*,misc-throw-*): of any type, as it may come
    (void)((ThrowsFrom("OnRun " + std::to_string(place++)) ? throw values : false) || ...);
}

}  // namespace

class ThrowingAgent : public CAgentApp {
  public:
    bool OnInit() override {
        const bool done = CAgentApp::OnInit();
        return ThrowsFrom("OnInit") ? throw std::runtime_error("100% \xC3\xA4") : done;
    }

    int OnRun() override {
        Bind(wxEVT_TIMER, [](wxTimerEvent&) { throw std::string("boom in a timer"); });
        wxTimer timer(this);
        static std::string text = "boom %s";  // is there when the pointer is caught
        static std::wstring wide = L"b\u00F6m";
        ThrowOneOf(text.data(), static_cast<char*>(nullptr), wide.data(), -7, 4294967295U, -7L,
                   18446744073709551615UL, -9223372036854775807LL, 7ULL);
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
