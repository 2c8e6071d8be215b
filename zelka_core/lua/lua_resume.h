#pragma once

struct lua_State;

namespace ZelkaCore {

// A lua_resume under way: the Lua thread that it runs, and the one inside which it was called.
// The program defines lua_resume in the place of Lua's own, for the host, its C modules and Lua's
// libraries alike: so in a state of CLuaInterpreter it is known at any instruction which Lua thread
// runs (CLuaInterpreter::Resumed), which Lua itself does not tell.
struct LuaResume {
    lua_State* thread;
    const LuaResume* outer;  // null: the state's main thread
};

}  // namespace ZelkaCore
