#include "zelka_core/lua/lua_interpreter.h"

#include <wx/log.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "platform/memory.h"
#include "zelka_core/lua/lua_arguments.h"
#include "zelka_core/lua/lua_hook.h"
#include "zelka_core/lua/task_scheduler.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;  // for figures that stand alone

std::string ReadToEnd(wxInputStream& stream) {
    std::string text;
    char block[4096];
    while (stream.Read(block, sizeof block).LastRead() > 0) {
        text.append(block, stream.LastRead());
    }
    return text;
}

// Message handler: makes any error value a text with a traceback.
int ExplainError(lua_State* L) {
    const char* text = lua_tostring(L, 1);
    if (text == nullptr) {
        if (luaL_callmeta(L, 1, "__tostring") && lua_isstring(L, -1)) {
            text = lua_tostring(L, -1);
        } else {
            text = lua_pushfstring(L, "(error object is a %s value)", luaL_typename(L, 1));
        }
    }
    luaL_traceback(L, L, text, 1);
    return 1;
}

// The text of a failed call's error value, without calling into Lua.
wxString TextOfError(lua_State* L, int status) {
    if (status == -1) {
        return "a C++ exception left a native function";
    }
    if (lua_type(L, -1) != LUA_TSTRING) {
        return wxString::Format("(error object is a %s value)",
                                wxString::FromUTF8(luaL_typename(L, -1)));
    }
    std::size_t size = 0;
    const char* text = lua_tolstring(L, -1, &size);
    return FromUtf8(std::string(text, size));
}

// The elements of a search path that do not depend on the current folder.
std::string AbsoluteElements(std::string_view path) {
    std::string absolute;
    while (!path.empty()) {
        const std::string_view element = path.substr(0, path.find(';'));
        if (element.starts_with('/')) {
            absolute.append(";").append(element);
        }
        path.remove_prefix(std::min(element.size() + 1, path.size()));
    }
    return absolute;
}

// Puts `front`, the program's folder and what stands there already into a search path.
void SetSearchPath(lua_State* L, const char* field, const std::string& front,
                   const std::string& bin) {
    lua_getglobal(L, "package");
    lua_getfield(L, -1, field);
    const char* defaults = lua_tostring(L, -1);
    std::string path = front.empty() ? bin : front + ";" + bin;
    if (defaults != nullptr) {
        path += AbsoluteElements(defaults);
    }
    lua_pushlstring(L, path.data(), path.size());
    lua_setfield(L, -3, field);
    lua_pop(L, 2);
}

int OpenLibraries(lua_State* L) {
    luaL_openlibs(L);
    return 0;
}

}  // namespace

CLuaInterpreter::CLuaInterpreter(bool generational, const wchar_t* name, bool openLibraries)
    : m_name(name), m_memoryLimit(AvailableMemory() / 2) {
    m_L = lua_newstate(Allocate, this);
    if (m_L == nullptr) {
        wxLogFatalError("No memory for a Lua state");
    }
    m_lock.SetState(m_L);
    if (generational) {
        lua_gc(m_L, LUA_GCGEN, 0);
    }
    if (openLibraries) {
        lua_pushcfunction(m_L, OpenLibraries);
        (void)lua_pcall(m_L, 0, 0, 0);
        lua_pushcfunction(m_L, Print);
        lua_setglobal(m_L, "print");
    }
    InstallLookHook(m_L);
}

CLuaInterpreter::~CLuaInterpreter() {
    const CLuaStateLock::Hold hold(m_lock);
    m_closing = true;
    lua_close(m_L);
    delete m_scheduler.Take();
}

CLuaInterpreter* CLuaInterpreter::Of(lua_State* L) {
    void* self = nullptr;
    return lua_getallocf(L, &self) == Allocate ? static_cast<CLuaInterpreter*>(self) : nullptr;
}

bool CLuaInterpreter::CountOutside(std::uint64_t bytes) {
    if (bytes > m_memoryOutside && m_memoryUsed + bytes > m_memoryLimit) {
        return false;
    }
    m_memoryOutside = bytes;
    return true;
}

void CLuaInterpreter::SetPackagePaths(const std::string& bin, const std::string& path,
                                      const std::string& cpath) {
    SetSearchPath(m_L, "path", path, bin + "/?.lua;" + bin + "/?/init.lua");
    SetSearchPath(m_L, "cpath", cpath, bin + "/?.so");
}

int CLuaInterpreter::RunScript(wxInputStream& chunk, int arguments, int results,
                               const wxString& name, wxOutputStream* output) {
    const CLuaStateLock::Hold hold(m_lock);
    m_errorInfo.clear();
    const std::string text = ReadToEnd(chunk);
    const int base = lua_gettop(m_L) - arguments;
    wxOutputStream* const outerOutput = std::exchange(m_output, output);
    const int status = [&] {
        const LuaStretch::Scope stretch(m_stretch);
        return CallChunk(text, arguments, results, name);
    }();
    m_output = outerOutput;
    if (status != LUA_OK) {
        lua_settop(m_L, base);
    }
    return status;
}

int CLuaInterpreter::CallChunk(const std::string& text, int arguments, int results,
                               const wxString& name) {
    const int handler = lua_gettop(m_L) - arguments + 1;
    if (!lua_checkstack(m_L, 3 + results)) {
        m_errorInfo = "no room on the Lua stack";
        return LUA_ERRMEM;
    }
    lua_pushcfunction(m_L, ExplainError);
    lua_insert(m_L, handler);
    int status = luaL_loadbufferx(m_L, text.data(), text.size(), ("=" + ToUtf8(name)).c_str(), "t");
    if (status == LUA_OK) {
        lua_insert(m_L, handler + 1);
        status = lua_pcall(m_L, arguments, results, handler);
    }
    if (status == LUA_OK) {
        lua_remove(m_L, handler);
    } else {
        m_errorInfo = TextOfError(m_L, status);
    }
    return status;
}

CTaskScheduler& CLuaInterpreter::Scheduler(CDom& dom) {
    if (m_scheduler.Get() == nullptr) {
        m_scheduler = new CTaskScheduler(*this, dom);
    }
    return *m_scheduler;
}

void* CLuaInterpreter::Allocate(void* self, void* block, std::size_t oldSize, std::size_t newSize) {
    auto& interpreter = *static_cast<CLuaInterpreter*>(self);
    const std::uint64_t used =
        interpreter.m_memoryUsed.load(kRelaxed) - (block != nullptr ? oldSize : 0);
    if (newSize == 0) {
        std::free(block);
        interpreter.m_memoryUsed.store(used, kRelaxed);
        return nullptr;
    }
    const bool grows = block == nullptr || newSize > oldSize;
    if (grows &&
        used + newSize + interpreter.m_memoryOutside.load(kRelaxed) >
            interpreter.m_memoryLimit.load(kRelaxed) &&
        !interpreter.m_lock.IsServing()) {
        return nullptr;  // Lua collects garbage and asks once more, then raises an error
    }
    void* moved = std::realloc(block, newSize);
    if (moved == nullptr) {
        return grows ? nullptr : block;
    }
    interpreter.m_memoryUsed.store(used + newSize, kRelaxed);
    return moved;
}

// print, as Lua has it, but to the output of the running task or chunk.
int CLuaInterpreter::Print(lua_State* L) {
    return CallGuarded(L, PrintArguments);
}

int CLuaInterpreter::PrintArguments(lua_State* L) {
    std::string line;
    const int count = lua_gettop(L);
    lua_getglobal(L, "tostring");
    for (int i = 1; i <= count; ++i) {
        lua_pushvalue(L, count + 1);
        lua_pushvalue(L, i);
        lua_call(L, 1, 1);
        std::size_t size = 0;
        const char* text = lua_tolstring(L, -1, &size);
        if (text == nullptr) {
            return luaL_error(L, "'tostring' must return a string to 'print'");
        }
        line.append(i > 1 ? "\t" : "").append(text, size);
        lua_pop(L, 1);
    }
    line += '\n';
    Of(L)->WriteOutput(line.data(), line.size());
    return 0;
}

void CLuaInterpreter::WriteOutput(const char* text, std::size_t size) const {
    const CTaskScheduler* const scheduler = SchedulerIfAny();
    const Task* const task = scheduler != nullptr ? scheduler->Current() : nullptr;
    if (task != nullptr && task->output) {
        task->output->Write({text, size});
    } else if (m_output != nullptr) {
        m_output->Write(text, size);
    } else {
        (void)std::fwrite(text, 1, size, stdout);
    }
}

}  // namespace ZelkaCore
