#include "zelka_core/lua/lua_archive.h"

#include <wx/log.h>

#include <lua.hpp>

#include <algorithm>
#include <exception>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include "zelka_core/text.h"

namespace ZelkaCore {

bool LuaArchive::Open(std::string& fault) {
    if (!m_isOpen && m_fault.empty() && !ReadDirectory(m_fault)) {
        wxLogWarning("A Lua archive is passed over: %s", FromUtf8(m_fault));
    }
    if (!m_isOpen) {
        fault = m_fault;
    }
    return m_isOpen;
}

bool LuaArchive::ReadDirectory(std::string& fault) {
    ZipArchive zip;
    std::string reason;
    if (!zip.Open(m_path, reason)) {
        fault = m_path + ": " + reason;
        return false;
    }
    std::unordered_map<std::string, std::size_t> indices;
    for (const ZipEntry& entry : zip.Entries()) {
        if (!indices.emplace(entry.name, indices.size()).second) {
            fault = m_path + "/" + entry.name + ": is there twice";
            return false;
        }
    }
    m_zip = std::move(zip);
    m_indices = std::move(indices);
    m_isOpen = true;
    return true;
}

const ZipEntry* LuaArchive::Find(const std::string& name) const {
    const auto found = m_indices.find(name);
    return found == m_indices.end() ? nullptr : &m_zip.Entries()[found->second];
}

bool LuaArchive::Read(const ZipEntry& entry, std::string& content, std::string& fault) {
    std::string read;
    std::string reason = ZipEntryFault(entry);
    const auto append = [&read](std::string_view block) {
        read.append(block);
        return true;
    };
    if (!reason.empty() || !m_zip.Read(entry, append, reason)) {
        fault = m_path + "/" + entry.name + ": " + reason;
        return false;
    }
    content = std::move(read);
    return true;
}

namespace {

constexpr const char* kMetatable = "ZelkaCore.ArchiveSearcher";

struct SearchResult {
    std::string chunkName;  // @<archive>/<entry>, if a module was found
    std::string text;       // of the module
    std::string tried;      // the places, in Lua's own words
    std::string fault;      // if not empty, the search failed
};

// The text as Lua's own file loader takes it: no byte order mark, no first line that begins with
// '#'. Its line break stays, so that lines are counted as in the entry.
void SkipPrologue(std::string& text) {
    if (text.starts_with("\xef\xbb\xbf")) {
        text.erase(0, 3);
    }
    if (text.starts_with('#')) {
        text.erase(0, std::min(text.find('\n'), text.size()));
    }
}

class ArchiveSearcher {
  public:
    explicit ArchiveSearcher(const std::vector<wxString>& paths) {
        m_archives.reserve(paths.size());
        for (const wxString& path : paths) {
            m_archives.emplace_back(ToUtf8(path));
        }
    }

    // Lua must see no exception but its own.
    SearchResult Search(const char* name) noexcept {
        SearchResult result;
        try {
            std::string module = name;
            std::replace(module.begin(), module.end(), '.', '/');
            const std::string candidates[] = {module + ".lua", module + "/init.lua"};
            for (LuaArchive& archive : m_archives) {
                if (!SearchArchive(archive, candidates, result)) {
                    break;
                }
            }
        } catch (const std::exception& exception) {
            result.fault.assign(exception.what());
        }
        return result;
    }

  private:
    // True to go on with the next archive.
    static bool SearchArchive(LuaArchive& archive, const std::string (&candidates)[2],
                              SearchResult& result) {
        std::string fault;
        if (!archive.Open(fault)) {
            result.tried += "\n\tno look into " + fault;
            return true;
        }
        for (const std::string& candidate : candidates) {
            if (const ZipEntry* entry = archive.Find(candidate)) {
                if (archive.Read(*entry, result.text, result.fault)) {
                    result.chunkName = "@" + archive.Path() + "/" + candidate;
                    SkipPrologue(result.text);
                }
                return false;
            }
            result.tried += "\n\tno file '" + archive.Path() + "/" + candidate + "'";
        }
        return true;
    }

    std::vector<LuaArchive> m_archives;
};

// What the userdata holds. Empty once collected, which a script can bring about early.
using SearcherPtr = std::unique_ptr<ArchiveSearcher>;

// Null for anything else, which a script can put in its place by way of the debug library.
SearcherPtr* SearcherAt(lua_State* L, int index) {
    void* userdata = luaL_testudata(L, index, kMetatable);
    return userdata != nullptr && lua_rawlen(L, index) == sizeof(SearcherPtr)
               ? static_cast<SearcherPtr*>(userdata)
               : nullptr;
}

int CollectSearcher(lua_State* L) {
    if (SearcherPtr* searcher = SearcherAt(L, 1)) {
        searcher->reset();
    }
    return 0;
}

// A Lua error unwinds this function like any C++ exception.
int SearchModule(lua_State* L) {
    const SearcherPtr* searcher = SearcherAt(L, lua_upvalueindex(1));
    const char* module = luaL_checkstring(L, 1);
    if (searcher == nullptr || !*searcher) {
        return luaL_error(L, "the archives are closed");
    }
    const SearchResult result = (*searcher)->Search(module);
    if (!result.fault.empty()) {
        return luaL_error(L, "error loading module '%s':\n\t%s", module, result.fault.c_str());
    }
    if (result.chunkName.empty()) {
        lua_pushlstring(L, result.tried.data(), result.tried.size());
        return 1;
    }
    const char* file = result.chunkName.c_str() + 1;
    if (luaL_loadbufferx(L, result.text.data(), result.text.size(), result.chunkName.c_str(),
                         "t") != LUA_OK) {
        return luaL_error(L, "error loading module '%s' from file '%s':\n\t%s", module, file,
                          lua_tostring(L, -1));
    }
    lua_pushstring(L, file);
    return 2;
}

}  // namespace

int PushArchiveSearcher(lua_State* L, const std::vector<wxString>& archives) {
    auto searcher = std::make_unique<ArchiveSearcher>(archives);
    if (luaL_newmetatable(L, kMetatable) != 0) {
        lua_pushcfunction(L, CollectSearcher);
        lua_setfield(L, -2, "__gc");
    }
    void* block = lua_newuserdata(L, sizeof(SearcherPtr));
    auto* owner = new (block) SearcherPtr;
    lua_pushvalue(L, -2);
    lua_setmetatable(L, -2);
    *owner = std::move(searcher);
    lua_pushcclosure(L, SearchModule, 1);
    lua_remove(L, -2);
    return 1;
}

}  // namespace ZelkaCore
