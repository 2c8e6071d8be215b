#pragma once

#include <wx/string.h>

#include <cstddef>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "zelka_core/archive/zip_archive.h"

struct lua_State;

namespace ZelkaCore {

// A ZIP archive of Lua modules. It is opened at the first use, and its directory is read once; a
// later change of the file is not seen. For one thread at a time.
class LuaArchive {
  public:
    // Opens nothing yet. `path` is that of the archive.
    explicit LuaArchive(std::string path) : m_path(std::move(path)) {}

    [[nodiscard]] const std::string& Path() const { return m_path; }

    // False if the archive cannot be opened, is damaged, or holds two entries of one name, with the
    // reason, which names the archive, in `fault`. The first call decides, and tells a failure in
    // the log.
    bool Open(std::string& fault);

    // The entry of exactly that name; null if there is none or the archive is not open. Valid until
    // the object goes or is moved.
    [[nodiscard]] const ZipEntry* Find(const std::string& name) const;

    // Without any if the archive is not open.
    [[nodiscard]] const std::vector<ZipEntry>& Entries() const { return m_zip.Entries(); }

    // Reads the whole of an entry that Find gave. False leaves `content` alone and puts the reason,
    // which names archive and entry, into `fault`.
    bool Read(const ZipEntry& entry, std::string& content, std::string& fault);

  private:
    bool ReadDirectory(std::string& fault);

    std::string m_path;
    ZipArchive m_zip;
    bool m_isOpen = false;
    std::string m_fault;  // why it is not
    std::unordered_map<std::string, std::size_t> m_indices;
};

// Pushes a function for `package.searchers` that finds modules in the archives, in their order:
// `a.b` is the entry a/b.lua, or else a/b/init.lua. It gives `require` the module's chunk, named
// `@<archive>/<entry>`, and
// `<archive>/<entry>` as the loader's second argument; or the text of the places where it looked. A
// damaged archive is passed over: it is told in the log, and among those places. A damaged entry,
// text that does not compile, and a precompiled chunk raise a Lua error that names them.
//
// The function owns the open archives and closes them when it is collected. Returns 1, as a
// lua_CFunction would. It runs under whatever guards the Lua state, and reads files there.
int PushArchiveSearcher(lua_State* L, const std::vector<wxString>& archives);

}  // namespace ZelkaCore
