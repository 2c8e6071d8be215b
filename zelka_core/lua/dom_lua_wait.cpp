#include "zelka_core/lua/dom_lua_wait.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "platform/poller.h"
#include "zelka_core/lua/dom_lua.h"
#include "zelka_core/lua/lua_class.h"
#include "zelka_core/lua/lua_cqueues.h"
#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/lua/task_scheduler.h"

namespace ZelkaCore {

namespace {

using Clock = CWaitEngine::Clock;

constexpr char kSignalClass[] = "ZelkaCore.signal";
using Signals = LuaClass<CSignal, kSignalClass>;

constexpr std::int64_t kLongest = 0xFFFFFFFE;  // milliseconds; some seven weeks

Deadline CheckTimeout(const DomCall& call) {
    const std::int64_t timeout = call.Integer(2, "timeout_ms");
    if (timeout < -1) {
        call.Raise("timeout_ms", "must be -1 (no limit), 0 or more milliseconds");
    }
    if (timeout == -1) {
        return std::nullopt;
    }
    return Clock::now() + std::chrono::milliseconds(std::min(timeout, kLongest));
}

// Calls a method of the object at `index`, if it has it, and leaves its one result on the stack.
bool CallMethod(const DomCall& call, int index, const char* method) {
    lua_getfield(call.L, index, method);
    if (lua_isnil(call.L, -1)) {
        lua_pop(call.L, 1);
        return false;
    }
    lua_pushvalue(call.L, index);
    lua_call(call.L, 1, 1);
    return true;
}

// "r", "w", "p" and combinations, or the numbers of poll(2).
unsigned CheckEvents(const DomCall& call, const char* argument) {
    if (lua_type(call.L, -1) == LUA_TSTRING) {
        unsigned events = 0;
        for (const char letter : call.Text(-1, argument)) {
            events |= letter == 'r'   ? Poller::kReadable
                      : letter == 'w' ? Poller::kWritable
                      : letter == 'p' ? Poller::kUrgent
                                      : 0U;
        }
        return events;
    }
    return lua_isnil(call.L, -1) ? 0U : Poller::FromPoll(call.Integer(-1, argument));
}

// An object that says what it waits for: its descriptor, whether for reading or writing, and after
// how many seconds it is ready anyway.
AwaitedDescriptor CheckObject(const DomCall& call, int index, const char* argument) {
    lua_State* L = call.L;
    const int top = lua_gettop(L);
    AwaitedDescriptor item{-1, Poller::kReadable, std::nullopt};
    if (CallMethod(call, index, "pollfd") && !lua_isnil(L, -1)) {
        const std::int64_t descriptor = call.Integer(-1, argument);
        if (descriptor < 0 || descriptor > INT32_MAX) {
            call.Raise(argument, "has no open descriptor");
        }
        item.descriptor = static_cast<int>(descriptor);
    }
    if (CallMethod(call, index, "events")) {
        item.events = CheckEvents(call, argument);
    }
    if (CallMethod(call, index, "timeout") && !lua_isnil(L, -1)) {
        if (!lua_isnumber(L, -1)) {
            call.Raise(argument, "has a timeout that is no number of seconds");
        }
        const double seconds = std::clamp(lua_tonumber(L, -1), 0.0, kLongest / 1000.0);
        item.deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                           std::chrono::duration<double>(seconds));
    }
    lua_settop(L, top);
    return item;
}

// Whether the value has a method `pollfd` or `timeout`.
bool IsObject(lua_State* L, int index) {
    if (lua_type(L, index) != LUA_TTABLE) {
        if (luaL_getmetafield(L, index, "__index") == 0) {
            return false;
        }
        lua_pop(L, 1);
    }
    bool isObject = false;
    for (const char* method : {"pollfd", "timeout"}) {
        lua_getfield(L, index, method);
        isObject = isObject || !lua_isnil(L, -1);
        lua_pop(L, 1);
    }
    return isObject;
}

Awaited CheckItem(const DomCall& call, int index) {
    lua_State* L = call.L;
    const std::string argument = std::to_string(index - 1);
    if (lua_type(L, index) == LUA_TSTRING) {
        return call.Name(index, "condition");
    }
    if (lua_type(L, index) == LUA_TNUMBER) {
        EventPtr event = FindEvent(static_cast<HANDLE>(call.Integer(index, "handle")));
        if (event == nullptr) {
            luaL_error(L, "%s: one of the handles is not that of an open event", call.Member());
        }
        return event;
    }
    if (CSignal* signal = SignalAt(L, index)) {
        return AwaitedSignal{signal, {}};
    }
    if (!IsObject(L, index)) {
        call.RaiseType(index, argument.c_str(),
                       "a condition's name, an event handle or an object with a descriptor");
    }
    return CheckObject(call, index, argument.c_str());
}

std::vector<Awaited> CheckItems(const DomCall& call) {
    std::vector<Awaited> items;
    const int top = lua_gettop(call.L);
    items.reserve(static_cast<std::size_t>(std::max(top - 2, 0)));
    for (int i = 3; i <= top; ++i) {
        items.push_back(CheckItem(call, i));
    }
    return items;
}

// With the arguments of the wait still on the stack.
int PushResult(lua_State* L, const WaitResult& result) {
    switch (result.kind) {
        case WaitResult::Kind::kFired:
            lua_pushvalue(L, static_cast<int>(result.index) + 3);
            return 1;
        case WaitResult::Kind::kTimeout:
            lua_pushnil(L);
            return 1;
        default:
            return luaL_error(L, "dom:Wait: argument '%d' cannot be waited for: %s",
                              static_cast<int>(result.index) + 2, result.error.message().c_str());
    }
}

// The task goes on behind its wait.
int ContinueWait(lua_State* L) {
    return CallGuarded(L, [](lua_State* state) {
        CTaskScheduler& scheduler = *CLuaInterpreter::Of(state)->SchedulerIfAny();
        return PushResult(state, scheduler.TakeResult(state));
    });
}

constexpr int kBegun = -1;
constexpr int kBegunInController = -2;

// The coroutine of a controller goes on behind its wait, or goes on waiting.
int ContinueInController(lua_State* L) {
    const int results = CallGuarded(L, [](lua_State* state) {
        const auto result = ResultInController(state);
        return result ? PushResult(state, *result) : kBegunInController;
    });
    return results != kBegunInController ? results : PollInController(L, ContinueInController);
}

// Waits, or has the task or a controller's coroutine begin to wait.
int WaitOrBegin(lua_State* L) {
    const DomCall call(L, "dom:Wait");
    CLuaInterpreter* interpreter = CLuaInterpreter::Of(L);
    if (interpreter == nullptr) {
        return luaL_error(L, "%s: this Lua state does not belong to the agent", call.Member());
    }
    Deadline deadline = interpreter->IsClosing() ? Clock::now() : CheckTimeout(call);
    std::vector<Awaited> items = CheckItems(call);
    CTaskScheduler& scheduler = interpreter->Scheduler(call.dom);
    if (scheduler.MayGiveWay(L)) {
        if (scheduler.Current()->isCancelled) {  // it will be told, when the others had their turn
            items.clear();
            deadline = Clock::now();
        }
        scheduler.Current()->Begin(std::move(items), deadline);
        return kBegun;
    }
    if (!interpreter->IsClosing() && IsInController(L)) {
        BeginInController(L, std::move(items), deadline);
        return kBegunInController;
    }
    scheduler.RaiseIfCancelled(L);
    return PushResult(L, scheduler.WaitHere(L, std::move(items), deadline));
}

}  // namespace

int Wait(lua_State* L) {
    const int results = CallGuarded(L, WaitOrBegin);
    // Nothing in this frame has to be destroyed: giving way is as fast as it can be.
    if (results == kBegunInController) {
        return PollInController(L, ContinueInController);
    }
    if (results != kBegun) {
        return results;
    }
    CLuaInterpreter::Of(L)->SchedulerIfAny()->GiveWay(L, ContinueWait);
    return ContinueWait(L);
}

CSignal& MakeSignal(lua_State* L) {
    return Signals::Make(L);
}

CSignal* SignalAt(lua_State* L, int index) {
    return Signals::At(L, index);
}

}  // namespace ZelkaCore
