#include <wx/log.h>

#include <string>

#include "zelka_core/log/log_text.h"
#include "zelka_core/lua/dom_lua.h"
#include "zelka_core/lua/lua_report.h"
#include "zelka_core/secret_name.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

void LogReport(const LuaThreadReport& report) {
    std::string text = (report.isTask ? "Lua task " : "Lua thread ") + report.name + ": " +
                       report.state + (report.waitsFor.empty() ? "" : " for " + report.waitsFor);
    if (report.since) {
        text += " since " + std::to_string(report.since->count()) + " ms";
    }
    text += " at " + report.place;
    for (const auto& [traceback, locals] : report.stacks) {
        text += (traceback.empty() ? "" : "\n" + traceback) + (locals.empty() ? "" : "\n" + locals);
    }
    wxLogVerbose("%s", FromUtf8(text));
}

void DumpVariables(const CDom& dom) {
    std::string text = "Domain variables:";
    for (const std::string& name : dom.Names("")) {
        text +=
            "\n\t" + name + " = " + (IsSecretName(name) ? kMasked : BoundedLogText(dom.Get(name)));
    }
    wxLogVerbose("%s", FromUtf8(text));
}

int Dump(lua_State* L) {
    const DomCall call(L, "dom:DumpAllLua");
    const LuaReportOptions options{.locals = lua_toboolean(L, 3) != 0,
                                   .tracebacks = lua_toboolean(L, 4) != 0};
    if (lua_State* thread = lua_tothread(L, 2)) {
        ReportLuaThread(L, thread, options, LogReport);
    } else {
        ReportLuaThreads(L, options, LogReport);
        ReportTasks(L, options, LogReport);
    }
    if (lua_toboolean(L, 5) != 0) {
        DumpVariables(call.dom);
    }
    return 0;
}

}  // namespace

int CDom::DumpAllLua(lua_State* L) {
    return CallGuarded(L, Dump);
}

}  // namespace ZelkaCore
