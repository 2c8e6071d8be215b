local lu = require "luaunit"

-- Members, the arguments that their errors have to name, and calls with each of them wrong.
local refused = {
    Get = { name = { {}, { 5 }, { "" } } },
    GetString = { name = { { {} }, { "" } } },
    Set = {
        name = { { nil, 1, n = 2 }, { "", 1 } },
        value = { { "test.x" }, { "test.x", {} }, { "test.x", print }, { "test.x", 1.5 }, { "test.x", 2 ^ 63 },
                  { "test.x", -2 ^ 63 - 2048 }, { "test.x", 0 / 0 }, { "test.x", 1 / 0 } },
    },
    SetNil = { name = { {}, { "" } } },
    Names = { prefix = { { 5 }, { true } } },
    ConditionRaise = { name = { {}, { "" } } },
    Wait = {
        timeout_ms = { {}, { "0" }, { 0.5 }, { -2 } },
        condition = { { 0, "" } },
        handle = { { 0, 0.5 } },
        [2] = { { 0, nil, n = 2 }, { 0, {} }, { 0, { pollfd = function() return -1 end } },
                { 0, { pollfd = function() return 0 end, timeout = function() return "x" end } } },
        [3] = { { 0, "x", true } },
    },
    StopRequested = {},
    EventSet = { handle = { {}, { "1" }, { 1.5 } } },
    GetPluginFile = {
        plugin = { {}, { "../x", "y" } },
        file = { { "x" }, { "x", "y/z" }, { "x", ".." }, { "x", "y\0z" } },
    },
    GetPluginWorkdir = { plugin = { { "" }, { "." } } },
    SettingStore = { name = { { "", "x" } }, value = { { "x" }, { "x", 5 } } },
    SettingRetrieve = { name = { {} } },
    SettingRemove = { name = { { 5 } } },
    AgentEventWrite = {
        event = { {}, { 5101 } },
        code = { { { severity = 5 } }, { { code = 2 ^ 31, severity = 5 } } },
        severity = { { { code = 1 } }, { { code = 1, severity = "grave" } }, { { code = 1, severity = -1 } } },
        data = { { { code = 1, severity = 5, data = {} } }, { { code = 1, severity = 5, data = "\255" } } },
    },
    AgentEvents = { after_id = { { "x" } }, limit = { { 0, 1.5 } } },
    Now = {},
    Time = {},
    Log = {
        level = { {}, { "loud", "text" } },
        text = { { "error" }, { "error", {} } },
        fields = { { "info", "x", "y" }, { "info", "x", { "y" } }, { "info", "x", { ["a b"] = 1 } },
                   { "info", "x", { _a = 1 } }, { "info", "x", { [("a"):rep(65)] = 1 } } },
        ["fields.key"] = { { "info", "x", { key = {} } }, { "info", "x", { key = 0.5 } } },
    },
    LogTrace = { module = { { "", "text" } }, text = { { "Appl" } } },
    LogTraceIsEnabled = { module = { {}, { "" } } },
}

TestArguments = {}

function TestArguments:testAWrongOneIsRefusedWithItsName()
    for member, call in pairs(getmetatable(dom).__index) do
        for argument, calls in pairs(assert(refused[member], member .. " is missing in the table above")) do
            local problem = ("dom:%s: argument '%s' "):format(member, argument)
            for _, values in ipairs(calls) do
                lu.assertErrorMsgContains(problem, call, dom, table.unpack(values, 1, values.n))
            end
        end
        for _, object in ipairs { "x", {}, io.stdout, 5 } do
            local problem = ("dom:%s: called on %s"):format(member, type(object))
            lu.assertErrorMsgContains(problem, call, object, "x", "y")
        end
    end
    lu.assertEquals({ dom:Names("test."), dom:AgentEvents() }, { {}, {} })
end
