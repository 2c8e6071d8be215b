#include "zelka_core/lua/lua_console.h"

#include <stdexcept>
#include <string_view>

#include "zelka_core/lua/lua_arguments.h"
#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/lua/lua_work.h"
#include "zelka_core/lua/task_scheduler.h"

extern const char kConsoleSource[];  // console.lua

namespace ZelkaCore {

namespace {

ConsoleClient& ClientOf(lua_State* L) {
    const Task* task = CLuaInterpreter::Of(L)->SchedulerIfAny()->Current();
    auto* client = task != nullptr ? dynamic_cast<ConsoleClient*>(task->output.get()) : nullptr;
    if (client == nullptr) {
        throw std::runtime_error("this is for tasks of the control socket");
    }
    return *client;
}

int Begun(lua_State* L) {
    return CallGuarded(L, [](lua_State* state) {
        ClientOf(state).OnBegun();
        return 0;
    });
}

int Finish(lua_State* L) {
    return CallGuarded(L, [](lua_State* state) {
        std::size_t size = 0;
        const char* text = luaL_tolstring(state, 2, &size);
        ClientOf(state).OnFinished(lua_toboolean(state, 1) != 0, std::string(text, size));
        return 0;
    });
}

bool EndsTooEarly(std::string_view error) {
    return error.ends_with("<eof>");
}

enum class Loaded { kYes, kNo, kIncomplete };

// Pushes the function of the text, or why it is none.
Loaded LoadText(lua_State* L, const std::string& text, const std::string& name) {
    if (luaL_loadbufferx(L, text.data(), text.size(), ("=" + name).c_str(), "t") == LUA_OK) {
        return Loaded::kYes;
    }
    return EndsTooEarly(lua_tostring(L, -1)) ? Loaded::kIncomplete : Loaded::kNo;
}

// What can be read as expressions is: their values are what is wanted.
Loaded Load(lua_State* L, const ConsoleChunk& chunk) {
    const Loaded expressions = LoadText(L, "return " + chunk.text, chunk.name);
    if (expressions == Loaded::kYes) {
        return Loaded::kYes;
    }
    lua_pop(L, 1);
    const Loaded statements = LoadText(L, chunk.text, chunk.name);
    return statements == Loaded::kNo ? expressions : statements;
}

ConsoleStart Start(lua_State* L, const ConsoleChunk& chunk,
                   const std::shared_ptr<ConsoleClient>& client) {
    const std::string_view source(kConsoleSource);
    if (luaL_loadbuffer(L, source.data(), source.size(), "=(console)") != LUA_OK) {
        lua_error(L);
    }
    lua_pushboolean(L, chunk.isInteractive ? 1 : 0);
    lua_pushcfunction(L, Begun);
    lua_pushcfunction(L, Finish);
    const Loaded loaded = Load(L, chunk);
    if (loaded == Loaded::kIncomplete && chunk.isInteractive) {
        return ConsoleStart::kIncomplete;
    }
    if (loaded != Loaded::kYes) {
        lua_error(L);
    }
    constexpr int kArguments = 4;
    CTaskScheduler& scheduler = *CLuaInterpreter::Of(L)->SchedulerIfAny();
    scheduler.Start(L, chunk.name, false, kArguments).output = client;
    return ConsoleStart::kStarted;
}

void Cancel(lua_State* L, const ConsoleClient& client) {
    CTaskScheduler::PushTasks(L);
    for (lua_pushnil(L); lua_next(L, -2) != 0; lua_pop(L, 1)) {
        Task* const task = Task::At(L, -1);
        if (task != nullptr && task->output.get() == &client) {
            (void)CLuaInterpreter::Of(L)->SchedulerIfAny()->Cancel(*task);
        }
    }
}

}  // namespace

ConsoleStart StartConsoleTask(lua_State* L, const ConsoleChunk& chunk,
                              const std::shared_ptr<ConsoleClient>& client) {
    ConsoleStart result = ConsoleStart::kFailed;
    std::string error;
    const auto start = [&](lua_State* state) { result = Start(state, chunk, client); };
    if (!RunProtected(L, start, error)) {
        client->OnFinished(false, error);
    }
    return result;
}

void CancelConsoleTask(lua_State* L, const ConsoleClient& client) {
    std::string error;
    (void)RunProtected(
        L, [&](lua_State* state) { Cancel(state, client); }, error);
}

}  // namespace ZelkaCore
