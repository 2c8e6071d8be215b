#pragma once

#include <wx/string.h>

#include <cstdint>
#include <optional>
#include <string>

namespace ZelkaCore {

// The record of something that happened to the agent. A plain value: the caller fills it, hands it
// over to be written, and may fill it again. Not for use by two threads at once.
class CAgentEvent {
  public:
    // How grave an event is. The numbers are stored in the agent database and never change; they
    // are the framework's log levels (wxLOG_FatalError is 0) where there is one of that meaning.
    // Its callers know it by this name, reserved as it is.
    // NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
    enum _EventSeverity : int {
        SeverityFatal = 0,
        SeverityError = 1,
        SeverityWarning = 2,
        SeverityNotice = 3,
        SeverityInfo = 5,
        SeverityDebug = 6,
    };

    CAgentEvent() = default;
    CAgentEvent(const CAgentEvent&) = default;
    CAgentEvent(CAgentEvent&&) = default;
    CAgentEvent& operator=(const CAgentEvent&) = default;
    CAgentEvent& operator=(CAgentEvent&&) = default;
    virtual ~CAgentEvent() = default;

    // The severity of a framework log level: messages and status texts (3, 4) are notices;
    // everything above information (5) is debugging.
    static _EventSeverity ToSeverity(unsigned long logLevel);

    // The severity of "fatal", "error", "warning", "notice", "info" or "debug", which is taken as
    // it is written; nothing for any other text.
    static std::optional<_EventSeverity> SeverityFromName(const std::string& name);

    // The name of a severity.
    static const char* NameOf(_EventSeverity severity);

    // What happened, as a number that the receiver knows.
    void SetEventCode(int code) { m_code = code; }
    [[nodiscard]] int GetEventCode() const { return m_code; }

    void SetSeverity(_EventSeverity severity) { m_severity = severity; }
    [[nodiscard]] _EventSeverity GetSeverity() const { return m_severity; }

    // Milliseconds since 1970-01-01 UTC.
    void SetJTime(std::int64_t milliseconds) { m_jTime = milliseconds; }
    [[nodiscard]] std::int64_t GetJTime() const { return m_jTime; }

    // Seconds since 1970-01-01 UTC: the millisecond time divided by 1000, remainder dropped.
    void SetTime(int seconds) { m_time = seconds; }
    [[nodiscard]] int GetTime() const { return m_time; }

    // Text whose form depends on the code.
    void SetData(const wxString& data) { m_data = data; }
    [[nodiscard]] const wxString& GetData() const { return m_data; }

    // Something that happens now, of that severity.
    static CAgentEvent Now(int code, _EventSeverity severity, const wxString& data);

  private:
    int m_code = 0;
    _EventSeverity m_severity = SeverityInfo;
    std::int64_t m_jTime = 0;
    int m_time = 0;
    wxString m_data;
};

struct StoredAgentEvent {
    // Counts up from 1 and is never used twice in one database.
    std::int64_t id = 0;
    CAgentEvent event;
};

}  // namespace ZelkaCore
