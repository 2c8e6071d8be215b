#include "zelka_core/lua/lua_process.h"

#include <iterator>
#include <memory>
#include <new>
#include <utility>

#include "platform/running_program.h"
#include "zelka_core/lua/lua_process_options.h"

namespace ZelkaCore {

namespace {

constexpr const char* kClass = "ZelkaCore.program";

using ProgramOwner = std::unique_ptr<RunningProgram>;

ProgramOwner& CheckOwner(lua_State* L) {
    return *static_cast<ProgramOwner*>(luaL_checkudata(L, 1, kClass));
}

RunningProgram& CheckProgram(lua_State* L) {
    const ProgramOwner& owner = CheckOwner(L);
    if (!owner) {
        luaL_error(L, "the program was given up");
    }
    return *owner;
}

int PushProblem(lua_State* L, const std::string& problem) {
    lua_pushnil(L);
    PushText(L, problem);
    return 2;
}

// An owner on top of the stack.
ProgramOwner& PushOwner(lua_State* L) {
    auto* owner = new (lua_newuserdata(L, sizeof(ProgramOwner))) ProgramOwner;
    luaL_setmetatable(L, kClass);
    return *owner;
}

int Start(lua_State* L) {
    const LuaCall call(L, "process.run");
    ProcessOptions options = CheckProcessOptions(call, 1);
    const std::string program = options.start.arguments.front();
    if (options.folder) {
        if (const auto error = OpenFolder(*options.folder, options.start.folder)) {
            return PushProblem(L, program + ": " + *options.folder + ": " + error.message());
        }
    }
    ProgramOwner& owner = PushOwner(L);
    if (const auto error = RunningProgram::Start(std::move(options.start), owner)) {
        return PushProblem(L, program + ": " + error.message());
    }
    if (!options.timeout) {
        return 1;
    }
    lua_pushnumber(L, static_cast<double>(*options.timeout));
    return 2;
}

int Descriptor(lua_State* L) {
    static const char* const kNames[] = {"ended", "out", "err", "input", nullptr};
    using Kind = RunningProgram::Descriptor;
    static constexpr Kind kKinds[] = {Kind::kEnd, Kind::kOutput, Kind::kErrors, Kind::kInput};
    const RunningProgram& program = CheckProgram(L);
    const int descriptor = program.Get(kKinds[luaL_checkoption(L, 2, nullptr, kNames)]);
    if (descriptor < 0) {
        lua_pushnil(L);
    } else {
        lua_pushinteger(L, descriptor);
    }
    return 1;
}

int Transfer(lua_State* L) {
    CheckProgram(L).Transfer();
    return 0;
}

int Kill(lua_State* L) {
    if (const auto error = CheckProgram(L).Kill()) {
        return PushProblem(L, error.message());
    }
    lua_pushboolean(L, 1);
    return 1;
}

int Collect(lua_State* L) {
    ProgramEnd end;
    if (const auto error = CheckProgram(L).Collect(end)) {
        return PushProblem(L, error.message());
    }
    lua_createtable(L, 0, 5);
    lua_pushinteger(L, end.code);
    lua_setfield(L, -2, end.isSignal ? "signal" : "code");
    PushText(L, end.output.content);
    lua_setfield(L, -2, "out");
    PushText(L, end.errors.content);
    lua_setfield(L, -2, "err");
    lua_pushboolean(L, end.output.dropped + end.errors.dropped != 0);
    lua_setfield(L, -2, "truncated");
    return 1;
}

int Abandon(lua_State* L) {
    CheckOwner(L).reset();
    return 0;
}

template <lua_CFunction function>
int Guarded(lua_State* L) {
    return CallGuarded(L, function);
}

int Open(lua_State* L) {
    static constexpr luaL_Reg kMethods[] = {{"descriptor", Guarded<Descriptor>},
                                            {"transfer", Guarded<Transfer>},
                                            {"kill", Guarded<Kill>},
                                            {"collect", Guarded<Collect>},
                                            {"abandon", Guarded<Abandon>},
                                            {nullptr, nullptr}};
    if (luaL_newmetatable(L, kClass)) {
        lua_createtable(L, 0, static_cast<int>(std::size(kMethods)));
        luaL_setfuncs(L, kMethods, 0);
        lua_setfield(L, -2, "__index");
        lua_pushcfunction(L, Guarded<Abandon>);
        lua_setfield(L, -2, "__gc");
        lua_pushboolean(L, 0);
        lua_setfield(L, -2, "__metatable");
    }
    lua_createtable(L, 0, 1);
    lua_pushcfunction(L, Guarded<Start>);
    lua_setfield(L, -2, "start");
    return 1;
}

}  // namespace

void PreloadProcess(lua_State* L) {
    Preload(L, "process.core", Open);
}

}  // namespace ZelkaCore
