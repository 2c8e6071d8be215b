#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "apps/zelka/control/control_target.h"
#include "zelka_core/store/agent_event.h"
#include "zelka_core/store/wait.h"
#include "zelka_core/varlink/varlink_message.h"

// One call to the control socket. Everything here is for the thread of the socket.

inline constexpr const char* kControlInterface = "com.orvane.zelka";
inline constexpr const char* kServiceInterface = "org.varlink.service";

// Ends a call with an error reply.
class ControlError : public std::exception {
  public:
    explicit ControlError(ZelkaCore::VarlinkReply reply) : m_reply(std::move(reply)) {}

    // An error of the agent's own interface, with its one parameter.
    ControlError(const char* name, const char* parameter, const std::string& value)
        : m_reply{.parameters = {{parameter, value}},
                  .error = std::string(kControlInterface) + '.' + name} {}

    [[nodiscard]] const ZelkaCore::VarlinkReply& Reply() const { return m_reply; }
    [[nodiscard]] const char* what() const noexcept override { return m_reply.error.c_str(); }

  private:
    ZelkaCore::VarlinkReply m_reply;
};

// A call that is not answered at once.
class OngoingCall {
  public:
    OngoingCall() = default;
    virtual ~OngoingCall() = default;  // gives up what is under way
    OngoingCall(const OngoingCall&) = delete;
    OngoingCall& operator=(const OngoingCall&) = delete;

    // Appends the replies that are to be had by now. May throw ControlError.
    virtual void Advance(std::vector<ZelkaCore::VarlinkReply>& replies) = 0;

    // Whether the last reply was given.
    [[nodiscard]] bool IsOver() const { return m_isOver; }

    // When it wants to be asked, besides when it says so by CallContext::wake.
    [[nodiscard]] const ZelkaCore::Deadline& Until() const { return m_deadline; }

    // Whether it wants to be asked when an agent event was written.
    [[nodiscard]] virtual bool AwaitsEvents() const { return false; }

  protected:
    void End() { m_isOver = true; }
    void SetDeadline(const ZelkaCore::Deadline& deadline) { m_deadline = deadline; }

  private:
    bool m_isOver = false;
    ZelkaCore::Deadline m_deadline;
};

// What a method gets.
struct CallContext {
    ControlTarget& target;
    const ZelkaCore::Json& parameters;
    bool wantsMore;
    std::function<void()> wake;  // has the calls that go on asked again; any thread, at any time

    // Parameters by their names. The wrong type, or nothing where something is needed, throws
    // ControlError.
    [[nodiscard]] std::string Text(const char* name) const;
    [[nodiscard]] std::optional<std::string> OptionalText(const char* name) const;
    [[nodiscard]] bool Flag(const char* name) const;  // absent: false
    [[nodiscard]] std::optional<std::int64_t> OptionalInteger(const char* name) const;
    [[nodiscard]] std::vector<std::string> Texts(const char* name) const;  // absent: none

    // For what changes the application or ends it: throws ControlError in a hardened service.
    void RefuseIfHardened() const;
    // Throws ControlError if there is none.
    [[nodiscard]] ZelkaCore::CLuaInterpreter& Interpreter() const;
};

// The parameters of the one reply, or what goes on.
using CallOutcome = std::variant<ZelkaCore::Json, std::unique_ptr<OngoingCall>>;
using ControlMethod = CallOutcome (*)(const CallContext& context);

// Carries out a call. Any error becomes a reply.
std::variant<ZelkaCore::VarlinkReply, std::unique_ptr<OngoingCall>> CarryOut(
    const ZelkaCore::VarlinkCall& call, ControlTarget& target, const std::function<void()>& wake);

// The methods, in files of their own.
CallOutcome GetStatus(const CallContext& context);
CallOutcome ListTasks(const CallContext& context);
CallOutcome GetStacks(const CallContext& context);
CallOutcome Complete(const CallContext& context);
CallOutcome Run(const CallContext& context);
CallOutcome ListVariables(const CallContext& context);
CallOutcome ListSettings(const CallContext& context);
CallOutcome GetSetting(const CallContext& context);
CallOutcome StoreSetting(const CallContext& context);
CallOutcome RemoveSetting(const CallContext& context);
CallOutcome ListEvents(const CallContext& context);
CallOutcome GetTrace(const CallContext& context);
CallOutcome ChangeTrace(const CallContext& context);

// The form of events in replies.
ZelkaCore::Json EventList(const std::vector<ZelkaCore::StoredAgentEvent>& events);
