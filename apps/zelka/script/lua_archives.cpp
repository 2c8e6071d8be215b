// Publishes the Lua archives of this run as `app.lua.zippath`.

#include "apps/start/lua_archives.h"

#include <utility>

#include "apps/zelka/zelka.h"
#include "zelka_core/log/trace.h"
#include "zelka_core/store/dom.h"

void CAgentApp::ExpandZippath() {
    const wxString result = FindLuaArchives({.bin = m_pDom->GetWxString("app.path.bin"),
                                             .application = GetAppName(),
                                             .zipPath = std::exchange(m_strZipPath, wxString()),
                                             .extDir = m_strExtDir},
                                            WarnInLog);
    if (result.empty()) {
        ZELKA_TRACE("Appl", "CAgentApp::ExpandZippath", "app.lua.zippath empty ");
        return;
    }
    (void)m_pDom->SetWx("app.lua.zippath", result);
    ZELKA_TRACE("Appl", "CAgentApp::ExpandZippath", "app.lua.zippath '%s' ", result);
}
