// The unit-test run: a driver module takes the place of the application's main.

#include <wx/sstream.h>

#include "apps/zelka/script/script_output.h"
#include "apps/zelka/zelka.h"
#include "zelka_core/lua/lua_interpreter.h"

int CAgentApp::RunUnitTest() {
    if (m_strUnitTest.empty()) {
        return 0;
    }
    StandardOutput output;
    wxString files = m_strUnitTest;
    files.Replace("\\", "\\\\");
    wxStringInputStream chunk("zelkaunit = require('zelkaunit'); return zelkaunit(\"" + files +
                              "\");");
    const int result = RunChunk(chunk, &output.Stream(), "zelkaunit");
    output.Stream().Sync();
    if (result != 0) {
        PrintErrorInfo(m_pLua->GetErrorInfo());
    }
    return result;
}
