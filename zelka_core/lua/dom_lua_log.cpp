#include "zelka_core/lua/dom_lua_log.h"

#include <wx/log.h>

#include <algorithm>
#include <string>

#include "zelka_core/log/log_fields.h"
#include "zelka_core/log/log_text.h"
#include "zelka_core/log/trace.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

struct Level {
    const char* name;
    wxLogLevelValues value;
};

constexpr Level kLevels[] = {
    {"error", wxLOG_Error},
    {"warning", wxLOG_Warning},
    {"info", wxLOG_Message},
    {"verbose", wxLOG_Info},
};

wxLogLevel CheckLevel(const DomCall& call) {
    const std::string name = call.Name(2, "level");
    const auto* const found =
        std::find_if(std::begin(kLevels), std::end(kLevels),
                     [&name](const Level& level) { return name == level.name; });
    if (found == std::end(kLevels)) {
        call.Raise("level",
                   "must be 'error', 'warning', 'info' or 'verbose', but it is '" + name + "'");
    }
    return found->value;
}

// Of the key at the index.
std::string CheckFieldName(const DomCall& call, int index) {
    if (lua_type(call.L, index) != LUA_TSTRING) {
        call.Raise("fields", std::string("must have strings as names, but one is a ") +
                                 luaL_typename(call.L, index));
    }
    std::string name = call.Text(index, "fields");
    if (!IsLogFieldName(name)) {
        call.Raise("fields",
                   "must have names of a letter and up to 63 letters, digits and "
                   "underscores, but one is '" +
                       name + "'");
    }
    return name;
}

// Text that is not UTF-8 is taken as the log takes it.
std::string CheckFieldValue(const DomCall& call, int index, const std::string& name) {
    const std::string argument = "fields." + name;
    switch (lua_type(call.L, index)) {
        case LUA_TSTRING:
            return ToUtf8(FromUtf8(call.Text(index, argument.c_str())));
        case LUA_TNUMBER:
            return std::to_string(call.Integer(index, argument.c_str()));
        case LUA_TBOOLEAN:
            return lua_toboolean(call.L, index) ? "true" : "false";
        default:
            call.RaiseType(index, argument.c_str(), "a string, an integer or a boolean");
    }
}

LogFields CheckFields(const DomCall& call, int index) {
    LogFields fields;
    if (!call.IsGiven(index)) {
        return fields;
    }
    if (!lua_istable(call.L, index)) {
        call.RaiseType(index, "fields", "a table");
    }
    lua_pushnil(call.L);
    while (lua_next(call.L, index) != 0) {
        const std::string name = CheckFieldName(call, -2);
        fields[name] = CheckFieldValue(call, -1, name);
        lua_pop(call.L, 1);
    }
    return fields;
}

// The framework's functions would end the text at a null.
wxString CheckTraceText(const DomCall& call, int index) {
    std::string text = BoundedLogText(call.TextView(index, "text"));
    std::replace(text.begin(), text.end(), '\0', '?');
    return FromUtf8(text);
}

}  // namespace

int Log(const DomCall& call) {
    const wxLogLevel level = CheckLevel(call);
    const std::string text = call.Text(3, "text");
    const LogFields fields = CheckFields(call, 4);
    if (level != wxLOG_Info || wxLog::GetVerbose()) {
        LogWithFields(level, text, fields);
    }
    return 0;
}

int WriteTrace(const DomCall& call) {
    const wxString module = FromUtf8(call.Name(2, "module"));
    const wxString text = CheckTraceText(call, 3);
    if (!LogTraceIsEnabled(module)) {
        return 0;
    }
    lua_Debug caller = {};
    if (lua_getstack(call.L, 1, &caller)) {
        lua_getinfo(call.L, "nSl", &caller);
    }
    LogTrace(module, caller.short_src, caller.currentline,
             caller.name != nullptr ? caller.name : "chunk", text);
    return 0;
}

int IsTraceEnabled(const DomCall& call) {
    lua_pushboolean(call.L, LogTraceIsEnabled(FromUtf8(call.Name(2, "module"))));
    return 1;
}

}  // namespace ZelkaCore
