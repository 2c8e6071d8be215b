#include "zelka_core/lua/lua_children.h"

#include <cerrno>
#include <cstdio>
#include <string_view>

#include "platform/shell.h"

namespace ZelkaCore {

namespace {

// A file of Lua's whose other end is a command.
struct CommandFile {
    luaL_Stream stream;  // first: Lua knows the userdata as this
    unsigned long pid;
};

// The results of a failed call, as Lua's own functions give them.
int PushError(lua_State* L, const std::error_code& error, const char* command) {
    errno = error.value();
    return luaL_fileresult(L, 0, command);
}

int Execute(lua_State* L) {
    const char* command = luaL_optstring(L, 1, nullptr);
    if (command == nullptr) {
        lua_pushboolean(L, HasShell());
        return 1;
    }
    int status = 0;
    if (const auto error = RunShell(command, status)) {
        return PushError(L, error, nullptr);
    }
    return luaL_execresult(L, status);
}

int CloseCommand(lua_State* L) {
    auto* file = static_cast<CommandFile*>(luaL_checkudata(L, 1, LUA_FILEHANDLE));
    (void)std::fclose(file->stream.f);
    int status = 0;
    if (const auto error = CollectShell(file->pid, status)) {
        return PushError(L, error, nullptr);
    }
    return luaL_execresult(L, status);
}

// A closed file, which Lua's own functions refuse and its finaliser passes over.
CommandFile* NewFile(lua_State* L) {
    auto* file = static_cast<CommandFile*>(lua_newuserdata(L, sizeof(CommandFile)));
    *file = {};
    luaL_setmetatable(L, LUA_FILEHANDLE);
    return file;
}

int OpenCommand(lua_State* L) {
    const char* command = luaL_checkstring(L, 1);
    const std::string_view mode = luaL_optstring(L, 2, "r");
    if (mode != "r" && mode != "w") {
        return PushError(L, std::make_error_code(std::errc::invalid_argument), command);
    }
    CommandFile* file = NewFile(L);
    FileStream stream;
    (void)std::fflush(nullptr);  // what was printed before comes before
    const auto direction = mode == "r" ? ShellPipe::kRead : ShellPipe::kWrite;
    if (const auto error = OpenShell(command, direction, stream, file->pid)) {
        return PushError(L, error, command);
    }
    file->stream = {.f = stream.release(), .closef = CloseCommand};
    return 1;
}

void Replace(lua_State* L, const char* library, const char* name, lua_CFunction function) {
    lua_getglobal(L, library);
    lua_pushcfunction(L, function);
    lua_setfield(L, -2, name);
    lua_pop(L, 1);
}

}  // namespace

void PatchChildren(lua_State* L) {
    Replace(L, "os", "execute", Execute);
    Replace(L, "io", "popen", OpenCommand);
}

}  // namespace ZelkaCore
