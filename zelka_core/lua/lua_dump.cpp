#include <wx/log.h>

#include <lua.hpp>
#include <string>

#include "zelka_core/log/trace.h"
#include "zelka_core/lua/dom_lua.h"
#include "zelka_core/lua/lua_patch.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

constexpr int kFramesShown = 40;          // of a thread, when locals are listed
constexpr std::size_t kValueShown = 120;  // bytes of a local's value

struct DumpOptions {
    bool locals;
    bool tracebacks;
    bool variables;
};

// How a script would see the thread: coroutine.status without the coroutine.
const char* StatusOf(lua_State* L, lua_State* thread) {
    if (thread == L) {
        return "running";
    }
    if (lua_status(thread) == LUA_YIELD) {
        return "suspended";
    }
    lua_Debug frame;
    if (lua_status(thread) == LUA_OK && lua_getstack(thread, 0, &frame)) {
        return "normal";
    }
    return lua_status(thread) == LUA_OK && lua_gettop(thread) > 0 ? "not started" : "dead";
}

// The innermost place in Lua code where the thread is.
std::string PlaceOf(lua_State* thread) {
    lua_Debug frame;
    for (int level = 0; lua_getstack(thread, level, &frame); ++level) {
        lua_getinfo(thread, "Sl", &frame);
        if (frame.currentline > 0) {
            return std::string(frame.short_src) + ":" + std::to_string(frame.currentline);
        }
    }
    return "outside Lua code";
}

// What tostring would say, without calling into a script's metamethods, cut to a line.
std::string ShowValue(lua_State* L, int index) {
    switch (lua_type(L, index)) {
        case LUA_TNIL:
            return "nil";
        case LUA_TBOOLEAN:
            return lua_toboolean(L, index) ? "true" : "false";
        case LUA_TNUMBER: {
            lua_pushvalue(L, index);  // lua_tolstring would turn the value itself into a string
            std::string text = lua_tostring(L, -1);
            lua_pop(L, 1);
            return text;
        }
        case LUA_TSTRING: {
            std::size_t size = 0;
            const char* text = lua_tolstring(L, index, &size);
            const bool cut = size > kValueShown;
            return '"' + std::string(text, cut ? kValueShown : size) + (cut ? "\"..." : "\"");
        }
        default:
            return wxString::Format("%s: %p", wxString::FromUTF8(luaL_typename(L, index)),
                                    lua_topointer(L, index))
                .utf8_string();
    }
}

std::string ShowLocals(lua_State* thread) {
    std::string text = "locals:";
    lua_Debug frame;
    for (int level = 0; level < kFramesShown && lua_getstack(thread, level, &frame); ++level) {
        lua_getinfo(thread, "Sl", &frame);
        for (int i = 1; const char* name = lua_getlocal(thread, &frame, i); ++i) {
            if (name[0] != '(') {  // temporaries of the virtual machine
                text += "\n\t" + std::string(frame.short_src) + ":" +
                        std::to_string(frame.currentline) + ": " + name + " = " +
                        (IsSecretName(name) ? "***" : ShowValue(thread, -1));
            }
            lua_pop(thread, 1);
        }
    }
    return text;
}

void DumpThread(lua_State* L, lua_State* thread, const std::string& name,
                const DumpOptions& options) {
    if (!lua_checkstack(thread, LUA_MINSTACK)) {
        return;
    }
    std::string text = "Lua thread " + name + ": " + StatusOf(L, thread) + " at " + PlaceOf(thread);
    if (options.tracebacks) {
        luaL_traceback(L, thread, nullptr, thread == L ? 1 : 0);  // not the dump itself
        text += std::string("\n") + lua_tostring(L, -1);
        lua_pop(L, 1);
    }
    if (options.locals) {
        text += "\n" + ShowLocals(thread);
    }
    wxLogVerbose("%s", FromUtf8(text));
}

void DumpThreads(lua_State* L, const DumpOptions& options) {
    lua_rawgeti(L, LUA_REGISTRYINDEX, LUA_RIDX_MAINTHREAD);
    DumpThread(L, lua_tothread(L, -1), "main", options);
    lua_pop(L, 1);
    LuaPatchForWin::PushThreads(L);
    lua_pushnil(L);
    while (lua_next(L, -2)) {
        lua_State* thread = lua_tothread(L, -2);
        DumpThread(L, thread, wxString::Format("%p", static_cast<void*>(thread)).utf8_string(),
                   options);
        lua_pop(L, 1);
    }
    lua_pop(L, 1);
}

void DumpVariables(const CDom& dom) {
    std::string text = "Domain variables:";
    for (const std::string& name : dom.Names("")) {
        text += "\n\t" + name + " = " + (IsSecretName(name) ? "***" : dom.Get(name));
    }
    wxLogVerbose("%s", FromUtf8(text));
}

int Dump(lua_State* L) {
    const DomCall call(L, "dom:DumpAllLua");
    const DumpOptions options{.locals = lua_toboolean(L, 3) != 0,
                              .tracebacks = lua_toboolean(L, 4) != 0,
                              .variables = lua_toboolean(L, 5) != 0};
    if (lua_State* thread = lua_tothread(L, 2)) {
        DumpThread(L, thread, "asked for", options);
    } else {
        DumpThreads(L, options);
    }
    if (options.variables) {
        DumpVariables(call.dom);
    }
    return 0;
}

}  // namespace

int CDom::DumpAllLua(lua_State* L) {
    return CallGuarded(L, Dump);
}

}  // namespace ZelkaCore
