#include "zelka_core/lua/lua_hook.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <utility>

#include "platform/next_function.h"
#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/lua/task_scheduler.h"

namespace ZelkaCore {

namespace {

// Between two looks: some ten microseconds.
constexpr int kInstructionsBetweenLooks = 2000;

// What a hook that was set wants of count events. Above 1 it is a number of instructions that is
// too large for the looks: it takes several of them.
constexpr int kNoCounts = 0;
constexpr int kEveryCount = 1;

// A hook that was set somewhere, with what it wants of count events. It stays for good, as any Lua
// thread may inherit it at any time.
struct SetHook {
    enum State : int { kFree, kBeingTaken, kTaken };

    std::atomic<int> state = kFree;
    std::atomic<lua_Hook> function = nullptr;
    std::atomic<int> counts = kNoCounts;
    std::atomic<int> looks = 0;  // since the function was called for a count, if counts is large

    [[nodiscard]] int LooksPerCall() const {
        return (counts + kInstructionsBetweenLooks - 1) / kInstructionsBetweenLooks;
    }
};

// Programs have one or two. The first stands for none and is never taken.
constexpr std::size_t kSetHooks = 32;
constinit std::array<SetHook, kSetHooks> g_setHooks;

void Look(lua_State* L) {
    CLuaInterpreter* interpreter = CLuaInterpreter::Of(L);
    if (interpreter == nullptr) {
        return;
    }
    if (interpreter->Lock().HasWork()) {
        interpreter->Lock().ServeWork(L);
    }
    if (CTaskScheduler* scheduler = interpreter->SchedulerIfAny()) {
        scheduler->OnLook(L);  // may raise an error
    }
}

// The host's hook has as many forms as there are places above: which hook is set is told by the
// function itself, which Lua hands on to new threads.
template <std::size_t number>
void LookAndCall(lua_State* L, lua_Debug* activation) {
    SetHook& set = g_setHooks[number];
    if (activation->event == LUA_HOOKCOUNT) {
        Look(L);
        if (set.counts == kNoCounts) {
            return;
        }
        if (set.counts != kEveryCount && ++set.looks < set.LooksPerCall()) {
            return;
        }
        set.looks = 0;
    }
    if (const lua_Hook function = set.function) {
        function(L, activation);  // last: it may yield
    }
}

template <std::size_t... numbers>
constexpr std::array<lua_Hook, kSetHooks> MakeForms(std::index_sequence<numbers...>) {
    return {LookAndCall<numbers>...};
}
constexpr auto kForms = MakeForms(std::make_index_sequence<kSetHooks>());

// The place of a hook; 0 if there is none left. Neither locks nor allocates: a signal handler may
// be the caller, on any thread.
std::size_t PlaceFor(lua_Hook function, int counts) {
    for (std::size_t i = 1; i < kSetHooks; ++i) {
        SetHook& set = g_setHooks[i];
        int state = SetHook::kFree;
        if (set.state.compare_exchange_strong(state, SetHook::kBeingTaken)) {
            set.function = function;
            set.counts = counts;
            set.state = SetHook::kTaken;
            return i;
        }
        if (state == SetHook::kTaken && set.function == function && set.counts == counts) {
            return i;
        }
    }
    return 0;
}

// Lua's own functions.
struct Original {
    decltype(&lua_sethook) set = Find<decltype(&lua_sethook)>("lua_sethook");
    decltype(&lua_gethook) get = Find<decltype(&lua_gethook)>("lua_gethook");
    decltype(&lua_gethookmask) mask = Find<decltype(&lua_gethookmask)>("lua_gethookmask");
    decltype(&lua_gethookcount) count = Find<decltype(&lua_gethookcount)>("lua_gethookcount");

    template <class Function>
    static Function Find(const char* name) {
        return reinterpret_cast<Function>(NextFunction(name));
    }
};

const Original& Lua() {
    static const Original original;
    return original;
}

// The hook of a Lua thread as it was set, if the host's calls it; null if it is another.
const SetHook* SetHookOf(lua_State* L) {
    const lua_Hook hook = Lua().get(L);
    for (std::size_t i = 0; i < kSetHooks; ++i) {
        if (kForms[i] == hook) {
            return &g_setHooks[i];
        }
    }
    return nullptr;
}

int CountsWanted(int mask, int count) {
    if ((mask & LUA_MASKCOUNT) == 0 || count <= 0) {
        return kNoCounts;
    }
    return count <= kInstructionsBetweenLooks ? kEveryCount : count;
}

int SetBeside(lua_State* L, lua_Hook function, int mask, int count) {
    if (function == nullptr || mask == 0) {
        return Lua().set(L, kForms[0], LUA_MASKCOUNT, kInstructionsBetweenLooks);
    }
    const int counts = CountsWanted(mask, count);
    const std::size_t place = PlaceFor(function, counts);
    if (place == 0) {
        return Lua().set(L, function, mask, count);  // better the script's hook than none
    }
    int between = kInstructionsBetweenLooks;
    if (counts == kEveryCount) {
        between = count;
    } else if (counts != kNoCounts) {
        between = count / g_setHooks[place].LooksPerCall();
    }
    return Lua().set(L, kForms[place], mask | LUA_MASKCOUNT, between);
}

bool IsTheHosts(lua_State* L) {
    return CLuaInterpreter::Of(L) != nullptr;
}

}  // namespace

void InstallLookHook(lua_State* L) {
    (void)lua_sethook(L, nullptr, 0, 0);
}

void LookAtEachInstruction(lua_State* L) {
    (void)Lua().set(L, Lua().get(L), Lua().mask(L) | LUA_MASKCOUNT, 1);
}

}  // namespace ZelkaCore

using ZelkaCore::SetHookOf;

extern "C" {

int lua_sethook(lua_State* L, lua_Hook func, int mask, int count) {
    return ZelkaCore::IsTheHosts(L) ? ZelkaCore::SetBeside(L, func, mask, count)
                                    : ZelkaCore::Lua().set(L, func, mask, count);
}

lua_Hook lua_gethook(lua_State* L) {
    const auto* set = SetHookOf(L);
    return set != nullptr ? set->function.load() : ZelkaCore::Lua().get(L);
}

int lua_gethookmask(lua_State* L) {
    const int mask = ZelkaCore::Lua().mask(L);
    const auto* set = SetHookOf(L);
    return set != nullptr && set->counts == ZelkaCore::kNoCounts ? mask & ~LUA_MASKCOUNT : mask;
}

int lua_gethookcount(lua_State* L) {
    const int count = ZelkaCore::Lua().count(L);
    const auto* set = SetHookOf(L);
    return set == nullptr || set->counts == ZelkaCore::kEveryCount ? count : set->counts.load();
}

}  // extern "C"
