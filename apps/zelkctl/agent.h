#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "apps/zelkctl/zelkctl.h"
#include "zelka_core/varlink/varlink_client.h"

// There is none, or it does not answer, or has gone: no other call would do better.
class AgentLost : public CommandError {
  public:
    using CommandError::CommandError;
};

// A connection to the agent of a working folder. Whatever fails ends the command with a
// CommandError that says it in words: kNoAgent if none listens there. For one thread.
class Agent {
  public:
    using Json = ZelkaCore::Json;
    using Deadline = ZelkaCore::VarlinkClient::Deadline;

    // How long an answer may take that nothing has to happen for.
    static constexpr std::chrono::seconds kPatience{10};

    explicit Agent(const std::string& workdir);

    // One call and its one reply. A name without a dot is a method of the agent's own interface.
    Json Call(const std::string& method, const Json& parameters = Json::object(),
              std::chrono::milliseconds patience = kPatience);

    // A call with any number of replies, which Next gives.
    void Start(const std::string& method, const Json& parameters);

    struct Reply {
        Json parameters;
        bool isLast = true;
    };

    // Waits for the next reply; none at the deadline.
    std::optional<Reply> Next(const Deadline& deadline);

    // Waits for the next reply, as long as it takes; before the first one only as long as the agent
    // answers others.
    Reply NextWhenever();

    // Whether a reply to the last call has come.
    [[nodiscard]] bool HasReplied() const { return m_hasReplied; }

    // Members of a reply to the last call: a text, and what has members or elements itself. Without
    // it the reply is one of another version of the agent.
    [[nodiscard]] std::string Text(const Json& reply, const char* member) const;
    [[nodiscard]] const Json& Part(const Json& reply, const char* member) const;

    // Waits until the agent has closed the connection.
    void AwaitEnd();

    // Whether it has done so, while no reply is due.
    [[nodiscard]] bool IsGone() const;

    // Ready to be read when something has come.
    [[nodiscard]] int Descriptor() const { return m_client.Descriptor(); }

    // Ends the command, unless the agent answers another connection.
    void CheckThatItAnswers() const;

    [[nodiscard]] const std::string& Workdir() const { return m_workdir; }

  private:
    void Send(const std::string& method, const Json& parameters, bool wantsMore);
    [[noreturn]] void Fail(const std::error_code& error, std::chrono::milliseconds patience) const;
    [[noreturn]] void FailAsOther(const std::string& does) const;
    [[nodiscard]] std::string Version() const;

    std::string m_workdir;
    std::string m_socket;
    std::string m_method;       // of the last call
    bool m_hasReplied = false;  // to it
    ZelkaCore::VarlinkClient m_client;
};
