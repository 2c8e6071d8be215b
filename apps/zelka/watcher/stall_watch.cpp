#include "apps/zelka/watcher/stall_watch.h"

#include <wx/log.h>

#include <atomic>
#include <memory>
#include <string>

#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/lua/lua_report.h"
#include "zelka_core/store/agent_event.h"
#include "zelka_core/store/agent_event_codes.h"
#include "zelka_core/store/dom.h"
#include "zelka_core/text.h"

using ZelkaCore::CAgentEvent;
using ZelkaCore::CDom;
using ZelkaCore::CLuaInterpreter;
using ZelkaCore::FromUtf8;

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kLookPatience{200};  // for the script to come by and say where it is

milliseconds LimitOf(const CDom& dom) {
    unsigned long limit = 0;
    return milliseconds(dom.GetWxString("app.lua.stallLimit").ToULong(&limit) ? limit : 0);
}

// What the script says of itself, and whether it comes in time.
struct Answer {
    enum State { kAwaited, kGiven, kLate };

    std::string place;
    std::string stack;
    std::atomic<State> state = kAwaited;
};

void Ask(CLuaInterpreter& lua, const std::shared_ptr<Answer>& answer) {
    const auto work = [answer](lua_State* L) {
        answer->place = ZelkaCore::PlaceOf(L);
        answer->stack = ZelkaCore::ShowTraceback(L, 0);
        if (answer->state.exchange(Answer::kGiven) == Answer::kLate) {
            wxLogWarning("The native code has returned to %s\n%s", FromUtf8(answer->place),
                         FromUtf8(answer->stack));
        }
    };
    (void)lua.Lock().Run(work, kLookPatience);
}

}  // namespace

bool StallWatch::Look(CLuaInterpreter& lua, CDom& dom) {
    const milliseconds limit = LimitOf(dom);
    const auto since = lua.Stretch().Since();
    const auto length = std::chrono::duration_cast<milliseconds>(lua.Stretch().Length());
    if (limit.count() == 0 || length < limit || since != lua.Stretch().Since()) {
        return false;
    }
    if (m_told == since) {
        return true;
    }
    m_told = since;
    const auto answer = std::make_shared<Answer>();
    Ask(lua, answer);
    const bool isGiven = answer->state.exchange(Answer::kLate) == Answer::kGiven;
    const std::string place = isGiven ? answer->place : "native code";
    wxLogWarning("The application has not waited for %lld ms; it is in %s\n%s",
                 static_cast<long long>(length.count()), FromUtf8(place),
                 isGiven ? FromUtf8(answer->stack) : "its stack follows when that returns");
    CAgentEvent event = CAgentEvent::Now(ZelkaCore::kEventStalled, CAgentEvent::SeverityWarning,
                                         FromUtf8("stall|" + place));
    dom.AgentEventWrite(event);
    return true;
}
