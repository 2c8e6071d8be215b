#include <algorithm>
#include <string_view>

#include "zelka_core/lua/lua_console.h"
#include "zelka_core/lua/lua_work.h"

namespace ZelkaCore {

namespace {

constexpr std::size_t kMostCandidates = 200;
constexpr int kLongestChain = 10;  // of `__index` tables

struct CompletionRequest {
    std::string_view path;    // names, each with the mark behind it
    std::string_view prefix;  // what is known of the last one
    std::vector<std::string> names;
};

bool IsNameCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

bool IsMark(char c) {
    return c == '.' || c == ':';
}

// Replaces the value on top by the table in which its members are looked up besides its own; nil if
// there is none.
void TakeIndexTable(lua_State* L) {
    if (lua_getmetatable(L, -1) == 0) {
        lua_pushnil(L);
    } else {
        lua_pushliteral(L, "__index");
        lua_rawget(L, -2);
        lua_remove(L, -2);
        if (!lua_istable(L, -1)) {
            lua_pop(L, 1);
            lua_pushnil(L);
        }
    }
    lua_remove(L, -2);
}

// Goes from table to table, the value on top first, for as long as `look` says so. Leaves what
// `look` has pushed when it said no; nil otherwise.
template <class Look>
void WalkChain(lua_State* L, const Look& look) {
    if (!lua_istable(L, -1)) {
        TakeIndexTable(L);
    }
    for (int depth = 0; depth < kLongestChain && lua_istable(L, -1); ++depth) {
        if (!look()) {
            lua_remove(L, -2);
            return;
        }
        TakeIndexTable(L);
    }
    lua_pop(L, 1);
    lua_pushnil(L);
}

// Replaces the value on top by its member of that name.
void TakeMember(lua_State* L, std::string_view name) {
    WalkChain(L, [&] {
        lua_pushlstring(L, name.data(), name.size());
        lua_rawget(L, -2);
        const bool goesOn = lua_isnil(L, -1);
        lua_pop(L, goesOn ? 1 : 0);
        return goesOn;
    });
}

void CollectNames(lua_State* L, CompletionRequest& request) {
    WalkChain(L, [&] {
        for (lua_pushnil(L); lua_next(L, -2) != 0; lua_pop(L, 1)) {
            if (lua_type(L, -2) != LUA_TSTRING || request.names.size() >= kMostCandidates) {
                continue;
            }
            std::size_t size = 0;
            const char* text = lua_tolstring(L, -2, &size);
            const std::string_view name(text, size);
            if (name.starts_with(request.prefix) && !name.empty() &&
                std::all_of(name.begin(), name.end(), IsNameCharacter)) {
                request.names.emplace_back(name);
            }
        }
        return true;
    });
}

void Complete(lua_State* L, CompletionRequest& request) {
    lua_pushglobaltable(L);
    std::string_view path = request.path;
    while (!path.empty()) {
        const auto* const mark = std::find_if(path.begin(), path.end(), IsMark);
        const auto size = static_cast<std::size_t>(mark - path.begin());
        TakeMember(L, path.substr(0, size));
        path.remove_prefix(size + 1);
    }
    CollectNames(L, request);
}

}  // namespace

std::vector<std::string> CompleteLua(lua_State* L, const std::string& text) {
    const auto begin = std::find_if(text.rbegin(), text.rend(), [](char c) {
                           return !IsNameCharacter(c) && !IsMark(c);
                       }).base();
    const auto last = std::find_if(text.rbegin(), std::make_reverse_iterator(begin), IsMark).base();
    CompletionRequest request{.path = {begin, last}, .prefix = {last, text.end()}, .names = {}};
    std::string error;
    (void)RunProtected(
        L, [&](lua_State* state) { Complete(state, request); }, error);
    const std::string front(text.begin(), last);
    for (std::string& name : request.names) {
        name.insert(0, front);
    }
    std::sort(request.names.begin(), request.names.end());
    request.names.erase(std::unique(request.names.begin(), request.names.end()),
                        request.names.end());
    return std::move(request.names);
}

}  // namespace ZelkaCore
