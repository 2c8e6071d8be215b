#include <wx/tokenzr.h>

#include <algorithm>
#include <charconv>
#include <exception>
#include <set>
#include <string_view>
#include <system_error>

#include "apps/start/lua_archives.h"
#include "apps/zelkctl/check/checks.h"
#include "apps/zelkctl/check/lua_probe.h"
#include "zelka_core/log/log_text.h"
#include "zelka_core/lua/lua_archive.h"
#include "zelka_core/text.h"

using ZelkaCore::LuaArchive;
using ZelkaCore::ToUtf8;
using ZelkaCore::ZipEntry;

namespace {

constexpr std::string_view kLua = ".lua";
constexpr std::string_view kInit = "/init";

// The module whose text the entry may be; empty if no module can be.
std::string ModuleOf(const std::string& entry) {
    if (!entry.ends_with(kLua)) {
        return {};
    }
    std::string module = entry.substr(0, entry.size() - kLua.size());
    if (module.ends_with(kInit)) {
        module.resize(module.size() - kInit.size());
    }
    if (module.find('.') != std::string::npos) {
        return {};
    }
    std::replace(module.begin(), module.end(), '/', '.');
    return module;
}

// Takes ":LINE: " and what stands in front of it from an error of Lua's compiler.
std::size_t TakeLine(std::string& text) {
    for (auto colon = text.find(':'); colon != std::string::npos;
         colon = text.find(':', colon + 1)) {
        std::size_t line = 0;
        const char* const end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data() + colon + 1, end, line);
        const std::string_view rest(stop, static_cast<std::size_t>(end - stop));
        if (error == std::errc() && rest.starts_with(": ")) {
            text = rest.substr(2);
            return line;
        }
    }
    return 0;
}

// Lua's error in parts: "error loading module 'm' from file 'FILE':\n\tFILE:LINE: text", where Lua
// may have shortened the second name, or "error loading module 'm':\n\tFILE: text".
void AddBroken(const std::string& error, Findings& findings) {
    constexpr std::string_view kBreak = ":\n\t";
    constexpr std::string_view kFrom = " from file '";
    constexpr std::size_t kLongest = 1000;  // bytes of the text
    const auto end = std::min(error.find(kBreak), error.size());
    const std::string head = error.substr(0, end);
    std::string text = error.substr(std::min(end + kBreak.size(), error.size()));
    const auto from = head.find(kFrom);
    const auto colon = text.find(": ");
    std::string file;
    std::size_t line = 0;
    if (from != std::string::npos && head.ends_with('\'')) {
        file = head.substr(from + kFrom.size(), head.size() - from - kFrom.size() - 1);
        line = TakeLine(text);
    } else if (colon != std::string::npos) {
        file = text.substr(0, colon);
        text.erase(0, colon + 2);
    }
    findings.Error(file, line, text.empty() ? error : ZelkaCore::BoundedLogText(text, kLongest));
}

// Lines that begin with a break and a tab, in one.
std::string InOneLine(const std::string& places) {
    std::string line;
    for (const char character : places) {
        if (character == '\n') {
            line += line.empty() ? "" : ", ";
        } else if (character != '\t') {
            line += character;
        }
    }
    return line;
}

class Application {
  public:
    Application(const Start& start, Findings& findings)
        : m_name(ToUtf8(start.identity.name)), m_findings(findings), m_probe(*start.dom) {}

    void Check() {
        std::string text;
        m_seen.insert(m_name);
        switch (m_probe.Find(m_name, text)) {
            case LuaProbe::Answer::kNotFound:
                return m_findings.Error(
                    "", "the application '" + m_name + "' is not found: " + InOneLine(text));
            case LuaProbe::Answer::kBroken:
                return AddBroken(text, m_findings);
            case LuaProbe::Answer::kFound:
                break;
        }
    }

    void CheckArchive(const std::string& path) {
        LuaArchive archive(path);
        std::string fault;
        if (!archive.Open(fault)) {
            // "ARCHIVE: reason", or "ARCHIVE/ENTRY: reason"
            const auto colon = std::min(fault.find(": ", path.size()), fault.size() - 2);
            return m_findings.Error(fault.substr(0, colon), fault.substr(colon + 2));
        }
        for (const ZipEntry& entry : archive.Entries()) {
            const std::string module = ModuleOf(entry.name);
            std::string text;
            if (!module.empty() && m_seen.insert(module).second &&
                m_probe.Find(module, text) == LuaProbe::Answer::kBroken) {
                AddBroken(text, m_findings);
            }
        }
    }

  private:
    const std::string m_name;
    Findings& m_findings;
    LuaProbe m_probe;
    std::set<std::string> m_seen;  // modules
};

}  // namespace

void CheckApplication(const Start& start, Findings& findings) {
    const wxString archives =
        FindLuaArchives({.bin = start.dom->GetWxString("app.path.bin"),
                         .application = start.identity.name,
                         .zipPath = start.zipPath,
                         .extDir = start.extDir},
                        [&](const wxString& text) { findings.Warning("", ToUtf8(text)); });
    (void)start.dom->SetWx("app.lua.zippath", archives);
    try {
        Application application(start, findings);
        application.Check();
        for (wxStringTokenizer list(archives, ";", wxTOKEN_STRTOK); list.HasMoreTokens();) {
            application.CheckArchive(ToUtf8(list.GetNextToken()));
        }
    } catch (const std::exception& error) {
        findings.Error("", std::string("Lua cannot be set up: ") + error.what());
    }
}
