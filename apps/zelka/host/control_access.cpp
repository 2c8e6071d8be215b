// What the control socket may ask of the application object, and how the socket is opened.

#include <wx/log.h>

#include "apps/zelka/control/control_server.h"
#include "apps/zelka/zelka.h"
#include "platform/service.h"
#include "zelka_core/store/dom.h"

std::chrono::milliseconds CAgentApp::Uptime() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 m_begin);
}

// A service is stopped the way its manager would, by the same rules.
void CAgentApp::Stop() {
    if (m_isService) {
        AskServiceToStop();
    } else {
        m_pDom->RequestStop();
    }
}

std::unique_ptr<ControlServer> CAgentApp::OpenControlSocket() {
    const std::string work = m_pDom->Get("app.path.work");
    auto server = std::make_unique<ControlServer>(*this);
    if (work.empty() || !server->Begin(work + "/control")) {
        return nullptr;
    }
    return server;
}
