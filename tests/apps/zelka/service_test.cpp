#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <random>
#include <thread>

#include "apps/zelka/service/service_controls.h"
#include "tests/apps/zelka/service_process.h"
#include "tests/support/captured_log.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

TEST(Service, AStopWhileItStartsIsHeldBackUntilItRunsAndLeadsThroughShutdown) {
    ServiceProcess service(R"(
        function app.init()
            mark(dom:Get("app.windows.service.name") .. " " .. dom:Get("app.trace+"))
            spin()
        end)",
                           "ZELKA_SERVICE_ARGS=' One  Two '");
    EXPECT_EQ(service.Report(), kInit);
    service.Signal(SIGTERM);
    EXPECT_EQ(service.Interrogate(), kInit);  // an answer does not make it ready
    service.LetGo();
    EXPECT_THAT(service.ReportsToTheEnd(),
                ElementsAre(kRunning, kStopping, kStopping, kStopped, kGone));
    EXPECT_EQ(service.Marks(), "zelk_agent Two\nshutdown\n");
}

TEST(Service, AFailedInitOrMainEndsItWithoutShutdownAndWithThatCodeIfTheEnvironmentAsksForIt) {
    ServiceProcess init("function app.init() return 256 end");
    EXPECT_THAT(init.ReportsToTheEnd(),
                ElementsAre(kInit, "STATUS=stopped (exit code 256)\nERRNO=256", "exit status 255"));
    ServiceProcess main("function app.main() return -1 end", "ZELKA_SERVICE_EXIT_STATUS=0");
    EXPECT_THAT(main.ReportsToTheEnd(),
                ElementsAre(kInit, kRunning, "STATUS=stopped (exit code -1)", kGone));
    EXPECT_EQ(init.Marks() + main.Marks(), "");
}

TEST(Service, AStopDuringMainIsToldAtOnceEvenInsideNativeCodeAndShutdownsResultCounts) {
    ServiceProcess service(
        R"(
        function app.main()
            os.execute("echo waits >>marks; while [ ! -e go ]; do sleep 0.05; done")
            local stop = dom:Get("app.windows.service.stopEvent")
            assert(dom:Wait(-1, stop) == stop)
            mark("told")
        end
        function app.shutdown()
            mark(tostring(dom:Get("app.windows.service.stopEvent")))
            return 7
        end)",
        "", "[HKLM\\SOFTWARE\\Orvane\\Zelk Agent]\nSelf Protect=2\n");  // only 1 hardens
    ExpectStart(service);
    service.AwaitMark(kRunning);
    service.Control(SERVICE_CONTROL_DUMP_STACK);
    EXPECT_EQ(service.Report(), kRunning);
    EXPECT_THAT(service.Log(), HasSubstr("its dump follows when it returns"));
    service.Signal(SIGTERM);
    ASSERT_EQ(service.Report(), kStopping);
    service.Signal(SIGTERM);  // once more is no harm
    EXPECT_EQ(service.Interrogate(), kAnsweredStopping);
    service.LetGo();
    EXPECT_THAT(service.ReportsToTheEnd(),
                ElementsAre(kStopping, "STATUS=stopped (exit code 7)\nERRNO=7", "exit status 7"));
    EXPECT_EQ(service.Marks(), "waits\ntold\nnil\n");
}

TEST(Service, OneThatIsHardenedByRegistryOrScriptRefusesStopButNotShutdown) {
    ServiceProcess byRegistry("", "", "[HKLM\\SOFTWARE\\Orvane\\Zelk Agent]\nSelf Protect=1\n");
    ServiceProcess byScript(R"(
        function app.main()
            dom:Set("app.state.isHardened", true)
            assert(dom:EventSet(dom:Get("app.windows.service.hardenEvent")))
        end)");
    ExpectStart(byRegistry);
    ExpectStart(byScript);
    EXPECT_EQ(byScript.Report(), kRunning);  // the harden event was seen
    for (ServiceProcess* service : {&byRegistry, &byScript}) {
        service->Signal(SIGTERM);
        EXPECT_EQ(service->Interrogate(), kRunning);
        EXPECT_THAT(service->Log(), HasSubstr("control 1 is refused"));
        service->Control(kShutdown);
        EXPECT_THAT(service->ReportsToTheEnd(), ElementsAre(kStopping, kStopping, kStopped, kGone));
    }
}

TEST(Service, DumpsShowWhereAScriptRunsForEverAndNoSecrets) {
    ServiceProcess service(R"(
        function app.init()
            local password, visible = "hidden1", "shown"
            dom:Set("app.Password", "hidden2")
            local function work()
                local depth = 2
                mark("works")
                spin()
            end
            coroutine.wrap(function() work() end)()
        end)");
    EXPECT_EQ(service.Report(), kInit);
    service.AwaitMark(kInit);
    const auto dump = [&service](int number) {
        const std::size_t before = service.Log().size();
        service.Signal(SIGRTMIN + number);
        EXPECT_EQ(service.Report(), kInit);
        return service.Log().substr(before);
    };
    EXPECT_THAT(dump(1), ContainsRegex("brief Lua thread info\n"
                                       "[^\n]* Lua thread main: normal at app.lua:20\n"
                                       "[^\n]*: running at app.lua:3\n$"));
    EXPECT_THAT(dump(2), AllOf(HasSubstr("in function 'work'"), Not(HasSubstr("locals"))));
    EXPECT_THAT(dump(3), AllOf(HasSubstr("depth = 2"), HasSubstr("visible = \"shown\""),
                               HasSubstr("password = ***"), HasSubstr("app.Password = ***"),
                               HasSubstr("service.name = zelk_agent"), Not(HasSubstr("hidden"))));
    service.LetGo();
    EXPECT_EQ(service.Report(), kRunning);
}

TEST(Service, DumpsAreSoundBesideFinalisersThatGiveTheStateBackAndTheStackIsLarge) {
    ServiceProcess service(R"(
        function app.main()
            local function nested(depth)
                return depth == 0 or ("x"):gsub("x", function() return nested(depth - 1) end)
            end
            mark(select(2, pcall(nested, 1000)))
            local stop = dom:Get("app.windows.service.stopEvent")
            local finalisers = {
                function() dom:SettingStore("name", "value") end,
                function() dom:AgentEventWrite { code = 1, severity = "info" } end,
                function() dom:Wait(0, "never") end,
            }
            repeat
                for _, finaliser in ipairs(finalisers) do
                    setmetatable({}, { __gc = finaliser })
                end
                local waiting = coroutine.wrap(function() return dom:Wait(1, stop) end)
            until waiting()
        end)",
                           "sh -c 'ulimit -s 256 && exec \"$@\"' sh");
    ExpectStart(service);
    for (int i = 0; i < SERVICE_STARTS; ++i) {
        service.Signal(SIGRTMIN + 1 + i % 3);
        ASSERT_EQ(service.Report(), kRunning);
    }
    EXPECT_THAT(service.Log(), ContainsRegex("Lua thread 0x[0-9a-f]+: waiting at app.lua"));
    service.Signal(SIGTERM);
    EXPECT_THAT(service.ReportsToTheEnd(), ElementsAre(kStopping, kStopping, kStopped, kGone));
    EXPECT_THAT(service.Marks(), HasSubstr("C stack overflow"));
}

TEST(Service, ControlsWithoutMeaningChangeNothing) {
    ServiceProcess service("");
    ExpectStart(service);
    for (const int code : {0, 2, 3, 7, 14, 16, 127, 131, 255, -1, 11, 12, 13}) {
        const std::string number = std::to_string(static_cast<unsigned>(code));
        const bool isKnown = code >= 11 && code <= 13;
        service.Control(code);
        EXPECT_EQ(service.Interrogate(), kRunning);
        const std::string log = service.Log();
        EXPECT_THAT(log, HasSubstr("ServiceCtrl(ctrl=" + std::to_string(code) + ", evType=0)"));
        EXPECT_EQ(log.find(" control " + number + ": the service answered 120\n") == log.npos,
                  isKnown);
    }
}

TEST(Service, ADumpBeforeThereIsAnInterpreterIsRefused) {
    wxAppConsole* const framework = wxAppConsole::GetInstance();
    static auto* const app = new CAgentApp;  // lives on, as what it cleans up is the process's
    wxAppConsole::SetInstance(framework);
    const CapturedLog log;
    EXPECT_EQ(app->ServiceCtrl(SERVICE_CONTROL_DUMP_STACK, 0), NO_ERROR);
    EXPECT_THAT(log.Text(), HasSubstr("control 129 is refused: there is no Lua interpreter yet"));
    EXPECT_THAT(log.Text(), HasSubstr("SetServiceStatus() failed"));  // it is no service
}

TEST(Service, AStopAtAnyMomentOfTheStartEndsWithAResult) {
    std::mt19937 random(20260131);  // NOLINT(cert-msc*): the same moments each time
    std::uniform_int_distribution<int> delay(0, 200);
    for (int start = 0; start < SERVICE_STARTS && !HasFailure(); ++start) {
        ServiceProcess service("");
        std::this_thread::sleep_for(std::chrono::milliseconds(delay(random)));
        service.Signal(SIGTERM);
        const std::vector<std::string> reports = service.ReportsToTheEnd();
        if (reports != std::vector{"signal " + std::to_string(SIGTERM)}) {  // while it was loaded
            EXPECT_THAT(reports, Contains(kStopped));
            EXPECT_EQ(reports.back(), kGone);
            EXPECT_EQ(service.Marks(), "shutdown\n");
        }
    }
}

}  // namespace
