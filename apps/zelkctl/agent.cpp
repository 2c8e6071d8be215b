#include "apps/zelkctl/agent.h"

#include <algorithm>
#include <array>
#include <utility>

#include "apps/zelka/version.h"
#include "apps/zelkctl/reply.h"

namespace {

using ZelkaCore::Json;

constexpr const char* kInterface = "com.orvane.zelka.";
constexpr const char* kGetInfo = "org.varlink.service.GetInfo";

// An error that is told in words.
struct ErrorText {
    const char* name;
    const char* text;
    const char* member;  // is shown behind the text; null: none is
};

constexpr std::array kErrorTexts{
    ErrorText{"com.orvane.zelka.NotRunning", "no Lua application can do that now", "reason"},
    ErrorText{"com.orvane.zelka.Busy", "the application does not answer", "reason"},
    ErrorText{"com.orvane.zelka.Hardened", "the agent refuses that", "reason"},
    ErrorText{"com.orvane.zelka.NoSuchSetting", "there is no such setting", "name"},
    ErrorText{"com.orvane.zelka.Failed", "the agent could not do it", "reason"},
    ErrorText{"com.orvane.zelka.BadMessage", "the agent does not take the call", "reason"},
    ErrorText{"com.orvane.zelka.TooManyConnections",
              "the agent has as many connections as it takes", "limit"},
    ErrorText{"org.varlink.service.InvalidParameter", "the agent does not take the parameter",
              "parameter"},
    ErrorText{"org.varlink.service.PermissionDenied",
              "the agent answers only root and its own user", nullptr},
};

bool IsOfUnknownMethod(const std::string& error) {
    constexpr std::array kErrors{"org.varlink.service.MethodNotFound",
                                 "org.varlink.service.InterfaceNotFound",
                                 "org.varlink.service.MethodNotImplemented"};
    return std::find(kErrors.begin(), kErrors.end(), error) != kErrors.end();
}

std::string TextOf(const ZelkaCore::VarlinkReply& reply) {
    for (const ErrorText& known : kErrorTexts) {
        if (reply.error == known.name) {
            return known.member == nullptr ? known.text
                                           : std::string(known.text) + ": " +
                                                 MemberText(reply.parameters, known.member);
        }
    }
    return "the agent answers " + Shown(reply.error) + " " + Shown(ToText(reply.parameters));
}

AgentLost ConnectError(const std::string& socket, const std::error_code& error) {
    if (error == std::errc::no_such_file_or_directory || error == std::errc::connection_refused ||
        error == std::errc::not_a_directory) {
        return AgentLost("no agent runs there: " + socket + ": " + error.message(),
                         ExitCode::kNoAgent);
    }
    if (error == std::errc::permission_denied || error == std::errc::operation_not_permitted) {
        return AgentLost(socket + ": " + error.message() +
                         ": run zelkctl as root or as the agent's user");
    }
    if (error == std::errc::resource_unavailable_try_again) {
        return AgentLost(socket + ": the agent does not answer: too many wait for it");
    }
    return AgentLost(socket + ": " + error.message());
}

}  // namespace

Agent::Agent(const std::string& workdir) : m_workdir(workdir), m_socket(workdir + "/control") {
    if (const auto error = m_client.Connect(m_socket)) {
        throw ConnectError(m_socket, error);
    }
}

void Agent::Send(const std::string& method, const Json& parameters, bool wantsMore) {
    ZelkaCore::VarlinkCall call;
    call.method = method.find('.') == std::string::npos ? kInterface + method : method;
    call.parameters = parameters;
    call.wantsMore = wantsMore;
    m_method = call.method;
    m_hasReplied = false;
    if (const auto error = m_client.Send(call)) {
        Fail(error, kPatience);
    }
}

Json Agent::Call(const std::string& method, const Json& parameters,
                 std::chrono::milliseconds patience) {
    Send(method, parameters, false);
    auto reply = Next(Poller::Clock::now() + patience);
    if (!reply) {
        Fail(std::make_error_code(std::errc::timed_out), patience);
    }
    return std::move(reply->parameters);
}

void Agent::Start(const std::string& method, const Json& parameters) {
    Send(method, parameters, true);
}

std::optional<Agent::Reply> Agent::Next(const Deadline& deadline) {
    ZelkaCore::VarlinkReply reply;
    const auto error = m_client.Receive(reply, deadline);
    if (error == std::errc::timed_out) {
        return std::nullopt;
    }
    if (error) {
        Fail(error, kPatience);
    }
    if (IsOfUnknownMethod(reply.error)) {
        FailAsOther("does not know '" + m_method + "'");
    }
    if (!reply.error.empty()) {
        throw CommandError(TextOf(reply));
    }
    m_hasReplied = true;
    return Reply{std::move(reply.parameters), !reply.continues};
}

Agent::Reply Agent::NextWhenever() {
    for (;;) {
        if (auto reply = Next(m_hasReplied ? Deadline() : Poller::Clock::now() + kPatience)) {
            return std::move(*reply);
        }
        CheckThatItAnswers();
    }
}

std::string Agent::Text(const Json& reply, const char* member) const {
    const auto found = reply.find(member);
    if (found == reply.end() || !found->is_string()) {
        FailAsOther("answers '" + m_method + "' without '" + member + "'");
    }
    return found->get<std::string>();
}

const Json& Agent::Part(const Json& reply, const char* member) const {
    const auto found = reply.find(member);
    if (found == reply.end() || !found->is_structured()) {
        FailAsOther("answers '" + m_method + "' without '" + member + "'");
    }
    return *found;
}

void Agent::AwaitEnd() {
    ZelkaCore::VarlinkReply reply;
    while (!m_client.Receive(reply)) {
    }
}

bool Agent::IsGone() const {
    return Poller::IsReady(Descriptor(), Poller::kReadable);
}

void Agent::CheckThatItAnswers() const {
    (void)Agent(m_workdir).Call(kGetInfo);
}

// Of the agent, which may fail to tell even that.
std::string Agent::Version() const {
    try {
        return m_method == kGetInfo ? kNotTold
                                    : MemberText(Agent(m_workdir).Call(kGetInfo), "version");
    } catch (const CommandError&) {
        return kNotTold;
    }
}

void Agent::FailAsOther(const std::string& does) const {
    throw CommandError("the agent at " + m_workdir + " (version " + Version() + ") " + does +
                       "; zelkctl is " ZELKA_VERSION);
}

void Agent::Fail(const std::error_code& error, std::chrono::milliseconds patience) const {
    if (error == std::errc::timed_out) {
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(patience).count();
        throw AgentLost(m_socket + ": the agent has not answered for " + std::to_string(seconds) +
                        " seconds");
    }
    if (error == std::errc::connection_reset || error == std::errc::broken_pipe) {
        throw AgentLost(m_socket + ": the agent has closed the connection");
    }
    if (error == std::errc::protocol_error) {
        throw AgentLost(m_socket + ": what answers there is no agent");
    }
    throw AgentLost(m_socket + ": " + error.message());
}
