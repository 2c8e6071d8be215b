#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <csignal>
#include <random>

#include "apps/zelka/zelka.h"
#include "tests/apps/zelka/service_process.h"
#include "tests/support/captured_log.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kInit = "STATUS=init";
constexpr const char* kRunning = "READY=1\nSTATUS=running";
constexpr const char* kStopping = "STOPPING=1\nSTATUS=stopping\nEXTEND_TIMEOUT_USEC=15000000";
constexpr const char* kAnsweredStopping = "STOPPING=1\nSTATUS=stopping";
constexpr const char* kStopped = "STATUS=stopped (exit code 0)";
constexpr int kShutdown = 5;

// What the scripts share: a function that runs Lua code until the file `go` is there, and one that
// leaves a mark.
constexpr const char* kPrelude = R"(
    local app = {}
    local function spin()
        while not io.open("{dir}/go") do end
    end
    local function mark(text)
        local file = assert(io.open("{dir}/marks", "a"))
        file:write(text, "\n")
        file:close()
    end
    function app.shutdown() mark("shutdown") end
)";

void LetGo(const ServiceProcess& service) {
    service.Scratch().Write("go", "");
}

std::string Marks(const ServiceProcess& service) {
    return ReadFile(service.Scratch().Path() / "marks");
}

void ExpectExit(int status, int code) {
    EXPECT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), code);
}

TEST(Service, IsReadyAfterInitAndStopsThroughShutdown) {
    ServiceProcess service(std::string(kPrelude) + R"(
        function app.init()
            mark(dom:Get("app.windows.service.name") .. " " .. dom:Get("app.trace+"))
            spin()
        end
        return app)",
                           {"ZELKA_SERVICE_ARGS= One  Two "});
    EXPECT_EQ(service.NextReport(), kInit);
    EXPECT_EQ(service.Interrogate(), kInit);  // an answer does not make it ready
    LetGo(service);
    EXPECT_EQ(service.NextReport(), kRunning);
    EXPECT_EQ(service.Interrogate(), kRunning);
    service.Signal(SIGTERM);
    int status = 0;
    EXPECT_THAT(service.ReportsToTheEnd(status), ElementsAre(kStopping, kStopping, kStopped));
    ExpectExit(status, 0);
    EXPECT_EQ(Marks(service), "zelk_agent Two\nshutdown\n");
}

TEST(Service, AFailedInitOrMainEndsItWithThatCodeAndWithoutShutdown) {
    int status = 0;
    ServiceProcess init(std::string(kPrelude) + "function app.init() return 5 end return app");
    EXPECT_THAT(init.ReportsToTheEnd(status),
                ElementsAre(kInit, "STATUS=stopped (exit code 5)\nERRNO=5"));
    ExpectExit(status, 5);

    ServiceProcess main(std::string(kPrelude) + "function app.main() return 6 end return app");
    EXPECT_THAT(main.ReportsToTheEnd(status),
                ElementsAre(kInit, kRunning, "STATUS=stopped (exit code 6)\nERRNO=6"));
    ExpectExit(status, 6);
    EXPECT_EQ(Marks(main), "");
}

TEST(Service, TheExitCodeIsZeroUnlessTheEnvironmentAsksForTheResult) {
    int status = 0;
    ServiceProcess service("return { init = function() return 5 end }",
                           {"ZELKA_SERVICE_EXIT_STATUS=0"});
    (void)service.ReportsToTheEnd(status);
    ExpectExit(status, 0);
}

TEST(Service, AStopDuringMainIsToldAtOnceAndShutdownsResultCounts) {
    ServiceProcess service(std::string(kPrelude) + R"(
        function app.main()
            local stop = dom:Get("app.windows.service.stopEvent")
            assert(dom:Wait(-1, stop) == stop)
            mark("told")
            spin()
        end
        function app.shutdown()
            mark(tostring(dom:Get("app.windows.service.stopEvent")))
            return 7
        end
        return app)");
    EXPECT_EQ(service.NextReport(), kInit);
    EXPECT_EQ(service.NextReport(), kRunning);
    service.Signal(SIGTERM);
    EXPECT_EQ(service.NextReport(), kStopping);
    service.Signal(SIGTERM);  // once more is no harm
    EXPECT_EQ(service.Interrogate(), kAnsweredStopping);
    LetGo(service);
    int status = 0;
    EXPECT_THAT(service.ReportsToTheEnd(status),
                ElementsAre(kStopping, "STATUS=stopped (exit code 7)\nERRNO=7"));
    ExpectExit(status, 7);
    EXPECT_EQ(Marks(service), "told\nnil\n");
}

TEST(Service, AStopWhileStartingIsHeldBackUntilItRuns) {
    ServiceProcess service(std::string(kPrelude) + "function app.init() spin() end return app");
    EXPECT_EQ(service.NextReport(), kInit);
    service.Signal(SIGTERM);
    EXPECT_EQ(service.Interrogate(), kInit);
    LetGo(service);
    int status = 0;
    EXPECT_THAT(service.ReportsToTheEnd(status),
                ElementsAre(kRunning, kStopping, kStopping, kStopped));
    ExpectExit(status, 0);
}

void ExpectStopRefusedAndShutdownAccepted(ServiceProcess& service) {
    service.Signal(SIGTERM);
    EXPECT_EQ(service.Interrogate(), kRunning);
    EXPECT_EQ(CountOf(service.Log(), "control 1 is refused"), 1);
    service.Control(kShutdown);
    int status = 0;
    EXPECT_THAT(service.ReportsToTheEnd(status), ElementsAre(kStopping, kStopping, kStopped));
    ExpectExit(status, 0);
}

TEST(Service, OneHardenedByTheRegistryRefusesStopButNotShutdown) {
    const ScratchFolder folder;
    const std::string registry =
        folder.Write("registry.ini", "[HKLM\\SOFTWARE\\Orvane\\Zelk Agent]\nSelf Protect=1\n");
    ServiceProcess service(std::string(kPrelude) + "return app", {"ZELKA_REGISTRY=" + registry});
    EXPECT_EQ(service.NextReport(), kInit);
    EXPECT_EQ(service.NextReport(), kRunning);
    ExpectStopRefusedAndShutdownAccepted(service);
}

TEST(Service, OneHardenedByItsScriptRefusesStopButNotShutdown) {
    ServiceProcess service(std::string(kPrelude) + R"(
        function app.main()
            dom:Set("app.state.isHardened", true)
            assert(dom:EventSet(dom:Get("app.windows.service.hardenEvent")))
        end
        return app)");
    EXPECT_EQ(service.NextReport(), kInit);
    EXPECT_EQ(service.NextReport(), kRunning);
    EXPECT_EQ(service.NextReport(), kRunning);  // the harden event was seen
    ExpectStopRefusedAndShutdownAccepted(service);
}

// Asks for the service's answer until its script has left a mark.
void WaitForMark(ServiceProcess& service, const std::string& mark) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (Marks(service).find(mark) == std::string::npos &&
           std::chrono::steady_clock::now() < deadline) {
        (void)service.Interrogate();
    }
}

TEST(Service, DumpsShowWhereAScriptRunsForEver) {
    ServiceProcess service(std::string(kPrelude) + R"(
        local function work() spin() end
        function app.init() mark("init") work() end
        function app.main() os.remove("{dir}/go") mark("main") work() end
        return app)");
    EXPECT_EQ(service.NextReport(), kInit);
    WaitForMark(service, "init");
    constexpr int kStackDump = 2;  // counted from RTMIN
    service.Signal(SIGRTMIN + kStackDump);
    EXPECT_EQ(service.NextReport(), kInit);
    EXPECT_THAT(service.Log(), HasSubstr("in function 'work'"));
    LetGo(service);
    EXPECT_EQ(service.NextReport(), kRunning);
    WaitForMark(service, "main");
    service.Control(SERVICE_CONTROL_DUMP_BRIEF);
    service.Control(SERVICE_CONTROL_DUMP_FULL);
    EXPECT_EQ(service.NextReport(), kRunning);
    EXPECT_EQ(service.NextReport(), kRunning);
    const std::string log = service.Log();
    EXPECT_THAT(log, HasSubstr("Dumping brief Lua thread info"));
    EXPECT_THAT(log, HasSubstr("Dumping full Lua thread info"));
    EXPECT_THAT(log, HasSubstr("app.windows.service.name = zelk_agent"));
    LetGo(service);
    service.Signal(SIGTERM);
    int status = 0;
    (void)service.ReportsToTheEnd(status);
    ExpectExit(status, 0);
}

TEST(Service, AScriptInsideNativeCodeDoesNotKeepAStopFromBeingTold) {
    ServiceProcess service(std::string(kPrelude) + R"(
        function app.main()
            os.execute("while [ ! -e {dir}/go ]; do sleep 0.05; done")
        end
        return app)");
    EXPECT_EQ(service.NextReport(), kInit);
    EXPECT_EQ(service.NextReport(), kRunning);
    service.Control(129);
    service.Signal(SIGTERM);
    (void)service.NextReport();
    (void)service.NextReport();
    LetGo(service);
    int status = 0;
    EXPECT_THAT(service.ReportsToTheEnd(status), ElementsAre(kStopping, kStopped));
    ExpectExit(status, 0);
}

TEST(Service, ControlsWithoutMeaningChangeNothing) {
    ServiceProcess service(std::string(kPrelude) + "return app");
    EXPECT_EQ(service.NextReport(), kInit);
    EXPECT_EQ(service.NextReport(), kRunning);
    for (const int code : {0, 2, 3, 6, 14, 16, 127, 131, 255, -1, 11, 12, 13}) {
        service.Control(code);
    }
    EXPECT_EQ(service.Interrogate(), kRunning);
    const std::string log = service.Log();
    EXPECT_EQ(CountOf(log, "answered 120"), 10);
    EXPECT_THAT(log, HasSubstr("ServiceCtrl(ctrl=13, evType=0)"));
    EXPECT_THAT(log, Not(HasSubstr("control 13:")));
}

TEST(Service, AnsweredControlsAndADumpWithoutAnInterpreter) {
    wxAppConsole* const framework = wxAppConsole::GetInstance();
    static auto* const app = new CAgentApp;  // lives on, as what it cleans up is the process's
    wxAppConsole::SetInstance(framework);
    for (const unsigned code : {0U, 2U, 3U, 6U, 14U, 16U, 127U, 131U, 0xFFFFFFFFU}) {
        EXPECT_EQ(app->ServiceCtrl(code, 0), ERROR_CALL_NOT_IMPLEMENTED) << code;
    }
    for (const unsigned code : {11U, 12U, 13U}) {
        EXPECT_EQ(app->ServiceCtrl(code, 0), NO_ERROR) << code;
    }
    const CapturedLog log;
    EXPECT_EQ(app->ServiceCtrl(SERVICE_CONTROL_DUMP_STACK, 0), NO_ERROR);
    EXPECT_THAT(log.Text(), HasSubstr("control 129 is refused: there is no Lua interpreter yet"));
    EXPECT_THAT(log.Text(), HasSubstr("SetServiceStatus() failed"));  // it is no service
}

// A start with a stop after `delay`. It ends with a result, or before anything began.
void ExpectResult(std::chrono::milliseconds delay) {
    ServiceProcess service(std::string(kPrelude) + "return app");
    const auto moment = std::chrono::steady_clock::now() + delay;
    std::string last;
    for (;;) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(moment - std::chrono::steady_clock::now());
        const auto report = left.count() > 0 ? service.NextReport(left) : std::nullopt;
        if (!report) {
            break;
        }
        last = *report;
    }
    service.Signal(SIGTERM);
    int status = 0;
    for (const std::string& report : service.ReportsToTheEnd(status)) {
        last = report;
    }
    if (last.empty() && WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) {
        return;  // the program was still being loaded
    }
    ExpectExit(status, 0);
    EXPECT_EQ(last, kStopped);
    EXPECT_EQ(Marks(service), "shutdown\n");
}

TEST(Service, AStopAtAnyMomentOfTheStartEndsWithAResult) {
    std::mt19937 random(20260131);  // NOLINT(cert-msc*): the same moments each time
    std::uniform_int_distribution<int> delay(0, 200);
    for (int start = 0; start < SERVICE_STARTS && !HasFailure(); ++start) {
        ExpectResult(std::chrono::milliseconds(delay(random)));
    }
}

}  // namespace
