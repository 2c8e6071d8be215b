#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "apps/zelka/version.h"
#include "platform/local_socket.h"
#include "platform/poller.h"
#include "platform/program.h"
#include "tests/support/child_process.h"
#include "tests/support/scratch_folder.h"
#include "zelka_core/varlink/varlink_message.h"

using ZelkaCore::VarlinkCall;
using ZelkaCore::VarlinkReader;

// zelkctl with an agent of another version, which answers as it likes.

namespace {

class FakeAgent {
  public:
    // The bytes that follow a call of the method, without their end; nothing: it hangs up.
    using Answers = std::function<std::string(const std::string& method)>;

    explicit FakeAgent(Answers answers) : m_answers(std::move(answers)) {
        EXPECT_FALSE(m_listener.Open(m_folder.Path() / "control"));
        m_process.emplace([this] { return Serve(); });
    }

    [[nodiscard]] std::string Folder() const { return m_folder.Path(); }

  private:
    struct Connection {
        ScopedFd socket;
        VarlinkReader reader;
    };

    bool Serve() {
        std::map<int, Connection> connections;
        Poller poller;
        bool isWell = !poller.Open() && !poller.Arm(m_listener.Get(), Poller::kReadable);
        while (isWell) {
            std::vector<Poller::Ready> ready;
            isWell = !poller.Wait(std::nullopt, ready);
            for (const auto& [descriptor, events] : ready) {
                ScopedFd socket;
                if (descriptor != m_listener.Get() && !Answer(connections[descriptor])) {
                    connections.erase(descriptor);
                } else if (descriptor == m_listener.Get() && !m_listener.Accept(socket)) {
                    isWell = !poller.Arm(socket.Get(), Poller::kReadable);
                    connections[socket.Get()].socket = std::move(socket);
                }
                (void)poller.Arm(descriptor, Poller::kReadable);
            }
        }
        return isWell;
    }

    bool Answer(Connection& connection) {
        std::string bytes;
        bool isOver = false;
        if (ReceiveSome(connection.socket.Get(), 65'536, bytes, isOver) || isOver) {
            return false;
        }
        connection.reader.Add(bytes);
        while (const auto message = connection.reader.Next()) {
            VarlinkCall call;
            std::string fault;
            const std::string answer =
                ReadVarlinkCall(*message, call, fault) ? m_answers(call.method) : "";
            std::size_t sent = 0;
            if (answer.empty() || SendSome(connection.socket.Get(), answer + '\0', sent)) {
                return false;
            }
        }
        return true;
    }

    const ScratchFolder m_folder;
    const Answers m_answers;
    LocalListener m_listener;
    std::optional<ChildProcess> m_process;
};

ProgramResult Zelkctl(const FakeAgent& agent, std::vector<std::string> arguments,
                      bool isJson = false) {
    arguments.insert(arguments.begin(), {"--workdir", agent.Folder()});
    if (isJson) {
        arguments.insert(arguments.begin(), "--json");
    }
    ProgramResult result;
    EXPECT_FALSE(RunProgram(ZELKCTL, arguments, result));
    return result;
}

using Commands = std::vector<std::vector<std::string>>;

Commands WithMembers() {
    return {{"status"},       {"tasks"},
            {"stacks"},       {"vars"},
            {"settings"},     {"settings", "get", "x"},
            {"events"},       {"events", "--after", "1"},
            {"events", "-f"}, {"trace"},
            {"trace", "+a"},  {"run", "1"}};
}

Commands WithoutMembers() {
    return {
        {"settings", "set", "a", "b"}, {"settings", "rm", "a"}, {"reload"}, {"stop", "--no-wait"}};
}

TEST(OtherVersions, WhatAnOlderAgentDoesNotKnowIsToldWithBothVersions) {
    for (const std::string error :
         {"MethodNotFound", "InterfaceNotFound", "MethodNotImplemented"}) {
        for (const bool tellsVersion : {true, false}) {
            const FakeAgent agent([&](const std::string& method) {
                return tellsVersion && method == "org.varlink.service.GetInfo"
                           ? R"({"parameters":{"version":"0.9"}})"
                           : R"({"error":"org.varlink.service.)" + error + R"("})";
            });
            const ProgramResult result = Zelkctl(agent, {"tasks"});
            EXPECT_EQ(result.exitCode, 1U);
            EXPECT_EQ(result.output.content, "");
            EXPECT_EQ(result.errors.content,
                      "zelkctl: the agent at " + agent.Folder() + " (version " +
                          (tellsVersion ? "0.9" : "-") +
                          ") does not know 'com.orvane.zelka.ListTasks'; zelkctl is " +
                          ZELKA_VERSION + "\n");
        }
    }
}

TEST(OtherVersions, AReplyThatLacksWhatACommandShowsIsToldInBothForms) {
    const FakeAgent agent([](const std::string&) { return R"({"parameters":{"new":[1]}})"; });
    for (const auto& command : WithMembers()) {
        for (const bool isJson : {false, true}) {
            const ProgramResult result = Zelkctl(agent, command, isJson);
            EXPECT_EQ(result.exitCode, 1U) << command[0];
            EXPECT_EQ(result.output.content, "") << command[0];
            EXPECT_NE(result.errors.content.find("' without '"), std::string::npos)
                << result.errors.content;
        }
    }
    for (const auto& command : WithoutMembers()) {
        EXPECT_EQ(Zelkctl(agent, command).exitCode, 0U) << command[0];
    }
}

TEST(OtherVersions, MembersOfAnotherKindAreLeftOutAndEndNothing) {
    const FakeAgent agent([](const std::string&) {
        return R"({"parameters":{"new":{},"kind":"new","text":7,"value":"a","left_out":"many",
            "status":{"process":7,"script":[],"name":{},"started":1e300,"uptime_ms":-9223372036854775808,
                      "versions":null,"events":[7,{"time":9223372036854775807,"id":18446744073709551615}]},
            "threads":[7,{},{"name":null,"is_task":7,"since_ms":9223372036854775807,"locals":[1]}],
            "variables":[null,{"name":7,"value":{"a":[]}}],"settings":[[],{}],
            "modules":[7,{}],"events":[7,[],{"severity":7}]}})";
    });
    for (const auto& command : WithMembers()) {
        const ProgramResult result = Zelkctl(agent, command);
        EXPECT_EQ(result.exitCode, command[0] == "run" ? 1U : 0U) << result.errors.content;
        EXPECT_TRUE(ZelkaCore::Json::accept(Zelkctl(agent, command, true).output.content));
    }
}

TEST(OtherVersions, WhatIsNoAgentIsToldAsSuch) {
    const std::map<std::string, std::string> texts{
        {"nonsense", "what answers there is no agent"},
        {"{\"parameters\":7}", "what answers there is no agent"},
        {"", "the agent has closed the connection"},
        {R"({"error":"com.orvane.zelka.New","parameters":{"why":"x"}})",
         R"(the agent answers com.orvane.zelka.New {"why":"x"})"}};
    for (const auto& entry : texts) {
        const FakeAgent agent([&](const std::string&) { return entry.first; });
        const ProgramResult result = Zelkctl(agent, {"status"});
        EXPECT_EQ(result.exitCode, 1U);
        EXPECT_NE(result.errors.content.find(entry.second), std::string::npos)
            << result.errors.content;
    }
}

}  // namespace
