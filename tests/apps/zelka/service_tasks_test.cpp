#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <random>

#include "tests/apps/zelka/service_process.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

TEST(ServiceTasks, ADumpTellsWhatEachWaitsForAndWhere) {
    ServiceProcess service(R"(
        local task = require "task"
        function app.main()
            task.start("sampler", function()
                local inner = coroutine.wrap(function() dom:Wait(-1, "app.sample") end)
                inner()
            end)
            task.start("sleeper", function() task.sleep(1000000) end)
            dom:Set("app.stop.patience", "0")
            mark("works")
        end)");
    const auto isTold =
        AllOf(ContainsRegex("Lua thread main: waiting at outside Lua code"),
              ContainsRegex("Lua task sampler: waiting for 'app.sample' since [0-9]+ ms at "
                            "app.lua:[0-9]+"),
              ContainsRegex("Lua task sleeper: waiting for [0-9]+ ms more since"),
              ContainsRegex("Lua thread 0x[0-9a-f]+: waiting at app.lua"));
    ExpectStart(service);
    service.AwaitMark(kRunning);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    do {  // until main has returned and its tasks wait
        service.Signal(SIGRTMIN + 2);
        EXPECT_EQ(service.Report(), kRunning);
    } while (!testing::Value(service.Log(), isTold) && std::chrono::steady_clock::now() < deadline);
    EXPECT_THAT(service.Log(), isTold);
    service.Signal(SIGTERM);
    EXPECT_THAT(service.ReportsToTheEnd(), Contains("exit status 0"));
}

TEST(ServiceTasks, GoOnBehindMainAndAreEndedByForceOnlyWhenTheyDoNotEndByThemselves) {
    ServiceProcess service(R"(
        local task = require "task"
        function app.main()
            dom:Set("app.stop.patience", "100")
            task.start("orderly", function() dom:Wait(-1, "app.stop") mark("stops") end)
            task.start("late", function() task.sleep(10) dom:Wait(-1, "never") end)
            task.start("deaf", function() while true do pcall(dom.Wait, dom, -1) end end)
            task.start("busy", function()
                dom:Wait(-1, "app.stop")
                while true do pcall(function() while true do end end) end
            end)
            task.essential("essential", function() dom:Wait(-1, "app.stop") error("it fails") end)
            mark("works")
        end)");
    ExpectStart(service);
    service.AwaitMark(kRunning);
    service.Signal(SIGTERM);
    EXPECT_THAT(service.ReportsToTheEnd(), Contains("exit status 2"));
    EXPECT_EQ(service.Marks(), "works\nstops\nshutdown\n");
    EXPECT_THAT(service.Log(),
                AllOf(HasSubstr("Task 'deaf' does not end by itself, and is ended"),
                      HasSubstr("Task 'busy' does not end by itself, and is ended"),
                      HasSubstr("Task 'essential' has failed: app.lua"), Not(HasSubstr("'late'"))));
}

TEST(ServiceTasks, AStallIsToldOnceWithItsPlaceAndIsNoLifeSign) {
    ServiceProcess service(
        R"(
        function app.main()
            mark("works")
            dom:Set("app.lua.stallLimit", "50")
            local till = dom:Now() + 1000
            while #dom:AgentEvents(0) == 0 and dom:Now() < till + 59000 do end
            while dom:Now() < till do end
            dom:Wait(1)
            local event = dom:AgentEvents(0)[1]
            mark(event.code .. " " .. event.data)
        end)",
        "WATCHDOG_USEC=100000");
    EXPECT_EQ(service.Report(), kInit);
    int lifeSigns = 0;
    for (auto report = service.Report(); service.Marks().find("stall") == std::string::npos;
         report = service.Report()) {
        lifeSigns += report == "WATCHDOG=1" ? 1 : 0;
    }
    EXPECT_LT(lifeSigns, 10);  // of 20 in such a time
    EXPECT_THAT(service.Marks(), ContainsRegex("5202 stall|app.lua:[0-9]+"));
    EXPECT_THAT(service.Log(), ContainsRegex("has not waited for [0-9]+ ms; it is in app.lua:"));
    service.Signal(SIGTERM);
    EXPECT_THAT(service.ReportsToTheEnd(), Contains("exit status 0"));
}

// Tasks, programs and descriptors in plenty, a socket, and the stop or a dump comes at some moment.
TEST(ServiceTasks, AStopAtAnyMomentEndsInOrder) {
    std::mt19937 random(20260131);  // NOLINT(cert-msc*): the same moments each time
    for (int start = 0; start < SERVICE_STARTS && !HasFailure(); ++start) {
        ServiceProcess service(R"(
            local task, process = require "task", require "process"
            local socket = require "socket"
            local function receive(udp)
                while dom:Wait(-1, "app.stop", task.readable(udp)) ~= "app.stop" do
                    assert(udp:receive())
                end
            end
            function app.main()
                local udp = assert(socket.udp())
                assert(udp:setsockname("127.0.0.1", 0))
                udp:settimeout(0)
                task.start("receiver", receive, udp)
                task.start("sender", function()
                    while not dom:StopRequested() do
                        assert(udp:sendto("x", udp:getsockname()))
                        task.sleep(1)
                    end
                end)
                for i = 1, 50 do
                    task.start("t" .. i, function()
                        while not dom:StopRequested() do
                            if i % 10 == 0 then
                                process.run { "sh", "-c", "echo " .. i }
                            elseif i % 3 == 0 then
                                dom:ConditionRaise("x" .. i + 1)
                                task.sleep(1)
                            else
                                dom:Wait(10, "app.stop", "x" .. i)
                            end
                        end
                    end)
                end
            end)");
        ExpectStart(service);
        const auto moment = std::chrono::microseconds(random() % 30'000);
        const auto until = std::chrono::steady_clock::now() + moment;
        while (std::chrono::steady_clock::now() < until) {
            service.Signal(SIGRTMIN + 2);
            EXPECT_EQ(service.Report(), kRunning);
        }
        service.Signal(SIGTERM);
        EXPECT_THAT(service.ReportsToTheEnd(),
                    AllOf(Contains("STATUS=stopped (exit code 0)"), Contains("exit status 0")));
        EXPECT_EQ(service.Marks(), "shutdown\n");
        EXPECT_THAT(service.Log(), AllOf(Not(HasSubstr("has failed")), Not(HasSubstr("is ended"))));
    }
}

}  // namespace
