#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <regex>

#include "apps/zelka/control/control_server.h"
#include "platform/file.h"
#include "tests/support/child_process.h"
#include "tests/support/scratch_folder.h"
#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/lua/task_scheduler.h"
#include "zelka_core/store/dom.h"
#include "zelka_core/varlink/varlink_client.h"

using ZelkaCore::Json;
using ZelkaCore::VarlinkCall;
using ZelkaCore::VarlinkClient;
using ZelkaCore::VarlinkReply;

namespace {

// An agent whose application is inside a script of the test, or waits.
class Agent : public ControlTarget {
  public:
    explicit Agent(std::chrono::milliseconds patience = ControlServer::kPatience)
        : m_lua(true, L"test", true), m_server(*this, patience) {
        (void)m_dom->Set("app.path.work", m_folder.Path().string());
        (void)m_dom->Set("some.password", "hush");
        m_lua.Scheduler(*m_dom);
        EXPECT_TRUE(m_server.Begin(Path()));
    }

    [[nodiscard]] std::string Path() const { return m_folder.Path() / "control"; }
    [[nodiscard]] ZelkaCore::CDom* Dom() const override { return m_dom.get(); }
    [[nodiscard]] ZelkaCore::CLuaInterpreter* Interpreter() const override { return &m_lua; }
    [[nodiscard]] RunPhase Phase() const override { return RunPhase::kMain; }
    [[nodiscard]] std::chrono::milliseconds Uptime() const override { return {}; }
    [[nodiscard]] bool IsService() const override { return true; }
    [[nodiscard]] bool IsHardened() const override { return isHardened; }
    void Stop() override { m_dom->RequestStop(); }
    bool Reload(wxString& problem) override {
        problem = "app.ini:3: why";
        return false;
    }

    bool isHardened = false;

  private:
    const ScratchFolder m_folder;
    const std::unique_ptr<ZelkaCore::CDom> m_dom{
        ZelkaCore::CDom::New(nullptr, nullptr, nullptr, false)};
    mutable ZelkaCore::CLuaInterpreter m_lua;
    ControlServer m_server;
};

class Client {
  public:
    explicit Client(const Agent& agent) { EXPECT_FALSE(m_client.Connect(agent.Path())); }

    void Send(const std::string& method, const Json& parameters = Json::object(),
              bool more = false) {
        EXPECT_FALSE(m_client.Send({.method = std::string(kControlInterface) + '.' + method,
                                    .parameters = parameters,
                                    .wantsMore = more}));
    }
    VarlinkReply Receive() {
        VarlinkReply reply;
        const auto error = m_client.Receive(reply, Poller::Clock::now() + std::chrono::seconds(30));
        reply.error = error ? error.message() : reply.error;
        return reply;
    }
    VarlinkReply Call(const std::string& method, const Json& parameters = Json::object()) {
        Send(method, parameters);
        return Receive();
    }
    // Bytes as they are, as many as the agent takes: it may close the connection.
    std::size_t SendBytes(std::string_view bytes) const {
        const std::size_t all = bytes.size();
        const auto deadline = Poller::Clock::now() + std::chrono::seconds(30);
        Poller poller;
        EXPECT_FALSE(poller.Open());
        std::vector<Poller::Ready> ready;
        std::size_t sent = 0;
        while (!bytes.empty() && !SendSome(m_client.Descriptor(), bytes, sent)) {
            bytes.remove_prefix(sent);
            if (sent == 0) {
                EXPECT_FALSE(poller.Arm(m_client.Descriptor(), Poller::kWritable));
                EXPECT_FALSE(poller.Wait(deadline, ready));
                if (ready.empty()) {
                    ADD_FAILURE() << "the agent neither takes it nor leaves";
                    break;
                }
                ready.clear();
            }
        }
        return all - bytes.size();
    }

  private:
    VarlinkClient m_client;
};

std::string Closed() {
    return std::make_error_code(std::errc::connection_reset).message();
}

std::string Named(const char* name) {
    return std::string(kControlInterface) + '.' + name;
}

// So many bytes of calls, the last of which may lack its end.
std::string Calls(std::size_t size) {
    const std::string call = WriteVarlink(VarlinkCall{.method = Named("GetStatus")});
    std::string calls;
    while (calls.size() < size) {
        calls += call;
    }
    calls.resize(size);
    return calls;
}

TEST(Control, WhatIsNoCallIsToldAndEndsItsConnectionAlone) {
    const Agent agent;
    Client other(agent);
    const std::string tooDeep = R"({"method":"a.B","parameters":)" + [] {
        std::string text;
        for (int i = 0; i < 1000; ++i) {
            text += R"({"a":)";
        }
        return text;
    }();
    const std::string inputs[] = {"nonsense",        "[]",    "{}",
                                  R"({"method":7})", tooDeep, std::string("\xff\xfe")};
    for (const std::string& input : inputs) {
        Client client(agent);
        client.SendBytes(input + '\0');
        const VarlinkReply reply = client.Receive();
        EXPECT_EQ(reply.error, Named("BadMessage")) << input.substr(0, 40);
        EXPECT_FALSE(reply.parameters["reason"].get<std::string>().empty());
        EXPECT_EQ(client.Receive().error, Closed());
    }
    {
        Client half(agent);
        half.SendBytes(R"({"method":)");
    }
    Client endless(agent);
    std::string letters;
    letters.resize(100'000'000, 'x');
    EXPECT_LT(endless.SendBytes(letters), 5'000'000U);
    EXPECT_EQ(endless.Receive().error, Named("BadMessage"));
    EXPECT_EQ(other.Call("GetStatus").error, "");
}

TEST(Control, WhoNeverReadsIsDroppedAndNothingIsKeptForHim) {
    const Agent agent(std::chrono::milliseconds(300));
    EXPECT_LT(Client(agent).SendBytes(Calls(20'000'000)), 2'000'000U);
    EXPECT_EQ(Client(agent).Call("GetStatus").error, "");
}

TEST(Control, AThousandConnectionsAndOneThatNeverReadsHinderNobodyLong) {
    const Agent agent(std::chrono::minutes(10));  // he stays, however slow the machine is
    const Client greedy(agent);
    greedy.SendBytes(Calls(60'000));

    std::vector<std::unique_ptr<Client>> clients;
    std::size_t served = 0;
    for (int i = 0; i < 1000; ++i) {
        clients.push_back(std::make_unique<Client>(agent));
        const VarlinkReply reply = clients.back()->Call("GetTrace");
        served += std::size_t{reply.error.empty()};
        EXPECT_TRUE(reply.error.empty() || reply.error == Named("TooManyConnections") ||
                    reply.error == Closed())
            << reply.error;
    }
    EXPECT_EQ(served, 31U);
    clients.clear();
    VarlinkReply last;
    do {  // until the server has seen that they are gone
        last = Client(agent).Call("GetTrace");
    } while (last.error == Named("TooManyConnections") || last.error == Closed());
    EXPECT_EQ(last.error, "");
}

TEST(Control, SecretsAreMaskedAndAHardenedServiceLetsItselfOnlyBeLookedAt) {
    Agent agent;
    Client client(agent);
    EXPECT_EQ(client.Call("StoreSetting", {{"name", "api.Token"}, {"value", "hush"}}).error, "");
    std::string seen;
    for (const auto& [method, parameters] :
         std::vector<std::pair<const char*, Json>>{{"ListVariables", Json::object()},
                                                   {"ListSettings", Json::object()},
                                                   {"GetSetting", {{"name", "api.Token"}}},
                                                   {"GetStacks", {{"locals", true}}}}) {
        const VarlinkReply reply = client.Call(method, parameters);
        EXPECT_EQ(reply.error, "");
        seen += reply.parameters.dump();
    }
    EXPECT_EQ(seen.find("hush"), std::string::npos) << seen;

    agent.isHardened = true;
    for (const auto& [method, parameters] : std::vector<std::pair<const char*, Json>>{
             {"Run", {{"chunk", "return 1"}}},
             {"Stop", Json::object()},
             {"StoreSetting", {{"name", "a"}, {"value", "b"}}},
             {"RemoveSetting", {{"name", "api.Token"}}}}) {
        EXPECT_EQ(client.Call(method, parameters).error, Named("Hardened")) << method;
    }
    EXPECT_FALSE(agent.Dom()->StopRequested());
    EXPECT_EQ(client.Call("GetSetting", {{"name", "api.Token"}}).error, "");
}

TEST(Control, EventsAreFollowedWithoutGapOrRepetition) {
    const Agent agent;
    const auto write = [&](int code) {
        auto event = ZelkaCore::CAgentEvent::Now(code, ZelkaCore::CAgentEvent::SeverityInfo, "x");
        agent.Dom()->AgentEventWrite(event);
    };
    write(1);
    Client client(agent);
    client.Send("ListEvents", {{"after", 0}, {"follow", true}}, true);
    std::vector<int> codes;
    for (int next = 2; codes.size() < 40; ++next) {
        const VarlinkReply reply = client.Receive();
        ASSERT_TRUE(reply.continues) << reply.error;
        for (const Json& event : reply.parameters["events"]) {
            codes.push_back(event["code"]);
        }
        write(next);
    }
    for (std::size_t i = 0; i < codes.size(); ++i) {
        EXPECT_EQ(codes[i], static_cast<int>(i) + 1);
    }
}

TEST(Control, TheDescriptionIsTheFileAndEachOfItsMethodsIsThere) {
    const Agent agent;
    VarlinkClient service;
    ASSERT_FALSE(service.Connect(agent.Path()));
    ASSERT_FALSE(service.Send({.method = "org.varlink.service.GetInterfaceDescription",
                               .parameters = {{"interface", kControlInterface}}}));
    VarlinkReply reply;
    ASSERT_FALSE(service.Receive(reply));
    const std::string file = ReadFile(CONTROL_DESCRIPTION);
    EXPECT_EQ(reply.parameters["description"], file);

    const std::regex method("\nmethod ([A-Za-z]+)\\(");
    for (auto it = std::sregex_iterator(file.begin(), file.end(), method);
         it != std::sregex_iterator(); ++it) {
        const std::string error = Client(agent).Call(it->str(1)).error;
        EXPECT_NE(error, "org.varlink.service.MethodNotFound") << it->str(1);
    }
}

TEST(Control, AnotherUserIsRefused) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    const Agent agent;
    fs::permissions(fs::path(agent.Path()).parent_path(), fs::perms::all);
    fs::permissions(agent.Path(), fs::perms::all);
    const ChildProcess other([&] {
        if (setuid(65534) != 0) {
            return false;
        }
        return Client(agent).Call("GetStatus").error == "org.varlink.service.PermissionDenied";
    });
    EXPECT_TRUE(other.Succeeds());
}

}  // namespace
