#include <wx/tokenzr.h>

#include <lua.hpp>
#include <vector>

#include "zelka_core/lua/lua_archive.h"
#include "zelka_core/store/dom.h"

namespace ZelkaCore {

namespace {

constexpr int kBehindPreload = 2;

// Inserts the searcher on top of the stack into package.searchers, and pops it.
void InsertSearcher(lua_State* L, int position) {
    lua_getglobal(L, "package");
    lua_getfield(L, -1, "searchers");
    for (int i = static_cast<int>(lua_rawlen(L, -1)); i >= position; --i) {
        lua_rawgeti(L, -1, i);
        lua_rawseti(L, -2, i + 1);
    }
    lua_pushvalue(L, -3);
    lua_rawseti(L, -2, position);
    lua_pop(L, 3);
}

}  // namespace

int CDom::RegisterLoader(lua_State* L) const {
    std::vector<wxString> archives;
    wxStringTokenizer list(GetWxString("app.lua.zippath"), ";", wxTOKEN_STRTOK);
    while (list.HasMoreTokens()) {
        archives.push_back(list.GetNextToken());
    }
    if (!archives.empty()) {
        (void)PushArchiveSearcher(L, archives);
        InsertSearcher(L, kBehindPreload);
    }
    return 0;
}

}  // namespace ZelkaCore
