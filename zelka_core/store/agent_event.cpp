#include "zelka_core/store/agent_event.h"

#include <wx/log.h>

#include <array>
#include <utility>

#include "zelka_core/system/clocks.h"

namespace ZelkaCore {

namespace {

constexpr std::array kNames{
    std::pair{CAgentEvent::SeverityFatal, "fatal"},
    std::pair{CAgentEvent::SeverityError, "error"},
    std::pair{CAgentEvent::SeverityWarning, "warning"},
    std::pair{CAgentEvent::SeverityNotice, "notice"},
    std::pair{CAgentEvent::SeverityInfo, "info"},
    std::pair{CAgentEvent::SeverityDebug, "debug"},
};

}  // namespace

CAgentEvent::_EventSeverity CAgentEvent::ToSeverity(unsigned long logLevel) {
    switch (logLevel) {
        case wxLOG_FatalError:
            return SeverityFatal;
        case wxLOG_Error:
            return SeverityError;
        case wxLOG_Warning:
            return SeverityWarning;
        case wxLOG_Message:
        case wxLOG_Status:
            return SeverityNotice;
        case wxLOG_Info:
            return SeverityInfo;
        default:
            return SeverityDebug;
    }
}

std::optional<CAgentEvent::_EventSeverity> CAgentEvent::SeverityFromName(const std::string& name) {
    for (const auto& [severity, text] : kNames) {
        if (name == text) {
            return severity;
        }
    }
    return std::nullopt;
}

const char* CAgentEvent::NameOf(_EventSeverity severity) {
    for (const auto& [known, text] : kNames) {
        if (known == severity) {
            return text;
        }
    }
    return kNames.back().second;
}

CAgentEvent CAgentEvent::Now(int code, _EventSeverity severity, const wxString& data) {
    CAgentEvent event;
    event.SetEventCode(code);
    event.SetSeverity(severity);
    event.SetJTime(TimeNowMillis());
    event.SetTime(static_cast<int>(event.GetJTime() / 1000));
    event.SetData(data);
    return event;
}

}  // namespace ZelkaCore
