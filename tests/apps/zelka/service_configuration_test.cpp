#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/service.h"
#include "tests/apps/zelka/service_process.h"

namespace {

using testing::ContainsRegex;

TEST(ServiceConfiguration,
     AHangupReadsTheConfigurationAnewUnlessALineMakesNoSenseAndTellsTheScript) {
    ServiceProcess service(R"(
        app.init = spin
        function app.main()
            local config = require "config"
            local stop = dom:Get("app.windows.service.stopEvent")
            while dom:Wait(-1, stop, "app.configChanged") ~= stop do
                local text = config.read("probe", { name = "none" }).name
                for _, module in ipairs { "Mine", "Other" } do
                    text = text .. (dom:LogTraceIsEnabled(module) and " " .. module or "")
                end
                mark(text)
            end
        end)",
                           "ZELKA_SERVICE_ARGS=Mine");
    EXPECT_EQ(service.Report(), kInit);
    service.Configure("app.Trace=Mine,Other\n[probe]\nname=one\n");
    service.Signal(SIGHUP);
    EXPECT_EQ(service.Interrogate(), kInit);
    service.LetGo();
    EXPECT_EQ(service.Report(), kRunning);
    service.AwaitMark(kRunning);
    EXPECT_EQ(service.Marks(), "one Mine Other\n");
    service.Configure("app.Trace=Third\nsenseless\n[probe]\nname=two\n");
    service.Signal(SIGHUP);
    EXPECT_EQ(service.Interrogate(), kRunning);
    EXPECT_THAT(service.Log(), ContainsRegex("error   The configuration stays as it is: "
                                             "[^\n]*/zelk_agent\\.ini:2: neither"));
    service.Configure("[probe]\nname=three\n");  // another has named the module Mine as well
    service.Control(SERVICE_CONTROL_PARAMCHANGE);
    service.AwaitMark(kRunning, "one Mine Other\n");
    EXPECT_EQ(service.Marks(), "one Mine Other\nthree Mine\n");
}

}  // namespace
