#include "zelka_core/lua/lua_config.h"

#include <stdexcept>

#include "zelka_core/lua/lua_arguments.h"
#include "zelka_core/store/ini_files.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

void SetText(lua_State* L, const char* field, const wxString& text) {
    PushText(L, ToUtf8(text));
    lua_setfield(L, -2, field);
}

void PushEntry(lua_State* L, const IniEntry& entry) {
    constexpr int kFields = 4;
    lua_createtable(L, 0, kFields);
    SetText(L, "name", entry.name);
    if (entry.value) {
        SetText(L, "value", *entry.value);
    }
    SetText(L, "file", entry.file);
    lua_pushnumber(L, static_cast<double>(entry.line));
    lua_setfield(L, -2, "line");
}

int Entries(const LuaCall& call) {
    const IniPaths paths{.own = FromUtf8(call.Text(1, "own")),
                         .global = FromUtf8(call.Text(2, "global"))};
    const wxString group = FromUtf8(call.Text(3, "group"));
    std::vector<IniEntry> entries;
    wxString problem;
    if (!ReadIniGroup(paths, group, entries, problem)) {
        throw std::runtime_error(ToUtf8(problem));
    }
    lua_createtable(call.L, static_cast<int>(entries.size()), 0);
    int index = 0;
    for (const IniEntry& entry : entries) {
        PushEntry(call.L, entry);
        lua_rawseti(call.L, -2, ++index);
    }
    return 1;
}

int EntriesGuarded(lua_State* L) {
    return CallGuarded(
        L, [](lua_State* state) { return Entries(LuaCall(state, "config.core.entries")); });
}

int OpenModule(lua_State* L) {
    lua_createtable(L, 0, 1);
    lua_pushcfunction(L, EntriesGuarded);
    lua_setfield(L, -2, "entries");
    return 1;
}

}  // namespace

void PreloadConfig(lua_State* L) {
    Preload(L, "config.core", OpenModule);
}

}  // namespace ZelkaCore
