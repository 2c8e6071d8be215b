#include "apps/start/command_line.h"

#include <wx/cmdline.h>
#include <wx/filename.h>
#include <wx/tokenzr.h>

#include "apps/start/path_templates.h"
#include "zelka_core/store/dom.h"
#include "zelka_core/text.h"

using ZelkaCore::CDom;
using ZelkaCore::ToUtf8;

namespace {

void AddTextOption(wxCmdLineParser& parser, const char* shortName, const char* longName,
                   const char* help) {
    parser.AddOption(shortName, longName, help, wxCMD_LINE_VAL_STRING);
}

// A plain test of prefixes: wildcards and placeholders in the list are not interpreted.
bool IsZipPathUnderBin(const wxString& list, const wxString& bin) {
    wxStringTokenizer entries(list, ";");
    while (entries.HasMoreTokens()) {
        wxFileName entry(entries.GetNextToken());
        (void)entry.MakeAbsolute();
        if (!entry.GetFullPath().StartsWith(bin)) {
            return false;
        }
    }
    return true;
}

}  // namespace

void AddStartOptions(wxCmdLineParser& parser) {
    AddTextOption(parser, "a", "appname",
                  "the name of this application (default is based on the name of the executable "
                  "file).");
    parser.AddSwitch("b", "background", "run as a Windows service or Unix daemon process.");
    AddTextOption(parser, "c", "lua_cpath",
                  "add the supplied value at the front of the search path for Lua C libraries.");
    AddTextOption(parser, "d", "domain_var", "sets domain variable; name=value format.");
    AddTextOption(parser, "e", "extdir",
                  "extension folder. All *.zke files from this folder are added to the Lua search "
                  "path.");
    parser.AddSwitch("i", "install_plugins",
                     "install all *.zkp files found in the same folder as the executable.");
    AddTextOption(parser, "l", "lua_path",
                  "add the supplied value at the front of the search path for Lua libraries.");
    AddTextOption(parser, "p", "plugins", "comma delimited list of plugins to enable.");
    AddTextOption(parser, "t", "trace",
                  "enable tracing for the specified set of module names, separated by commas.");
    AddTextOption(parser, "w", "workdir",
                  "working directory where this instance's data files are stored. Registry value "
                  "names are also permitted.");
    AddTextOption(parser, "u", "unittest",
                  "runs the Lua script (possibly wildcarded) under LuaUnit.");
    parser.AddSwitch("U", "test", "");
    AddTextOption(parser, "z", "zippath",
                  "list of ZIP archives of Lua code (possibly wildcarded), separated by "
                  "semi-colons.");
    // Accepted here and read from the raw arguments when the Lua table `arg` is built.
    parser.AddParam("-- script-param [script-param ...]", wxCMD_LINE_VAL_STRING,
                    wxCMD_LINE_PARAM_OPTIONAL | wxCMD_LINE_PARAM_MULTIPLE);
}

Identity SettleIdentity(const wxCmdLineParser& parser, const wxString& name,
                        const wxFileName& executable, CDom& dom) {
    wxString chosen = name;
    (void)parser.Found("appname", &chosen);
    Identity identity = ApplyBrandRule(chosen, executable.GetName());
    (void)dom.SetWx("app.name.effective", identity.effectiveName);
    (void)dom.SetWx("app.name.effective.short", identity.effectiveShort);
    return identity;
}

bool TakeLuaPaths(const wxCmdLineParser& parser, CDom& dom, wxString& zipPath) {
    wxString plugins;
    if (parser.Found("plugins", &plugins)) {
        (void)dom.SetWx("app.plugins", plugins);
    }
    wxString value;
    if (parser.Found("lua_cpath", &value)) {
        (void)dom.SetWx("app.lua.cpath", ExpandPathTemplates(value, plugins));
    }
    if (parser.Found("lua_path", &value)) {
        (void)dom.SetWx("app.lua.path", ExpandPathTemplates(value, plugins));
    }
    wxString archives;
    (void)parser.Found("zippath", &archives);
    if (!archives.empty() && !IsZipPathUnderBin(archives, dom.GetWxString("app.path.bin"))) {
        return false;
    }
    zipPath = ExpandPathTemplates(archives, plugins);
    return true;
}

// The option may be given several times; the parser's own answer is the last value alone.
std::vector<wxString> TakeDomainVariables(const wxCmdLineParser& parser, CDom& dom) {
    std::vector<wxString> invalid;
    for (const wxCmdLineArg& argument : parser.GetArguments()) {
        if (argument.GetKind() != wxCMD_LINE_OPTION || argument.GetShortName() != "d") {
            continue;
        }
        const wxString& value = argument.GetStrVal();
        const std::size_t equals = value.find('=');
        if (equals == wxString::npos || equals == 0) {
            invalid.push_back(value);
        } else {
            (void)dom.Set(ToUtf8(value.substr(0, equals)), ToUtf8(value.substr(equals + 1)));
        }
    }
    return invalid;
}
