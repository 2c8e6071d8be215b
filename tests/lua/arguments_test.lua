local lu = require "luaunit"

-- Member, the argument that its error has to name, and the arguments of the call.
local refused = {
    { "Get", "name" }, { "Get", "name", 5 }, { "Get", "name", "" },
    { "GetString", "name", {} }, { "GetString", "name", "" },
    { "Set", "name", nil, 1, n = 4 }, { "Set", "name", "", 1 },
    { "Set", "value", "test.value" }, { "Set", "value", "test.value", {} },
    { "Set", "value", "test.value", print }, { "Set", "value", "test.value", 1.5 },
    { "Set", "value", "test.value", 2 ^ 63 }, { "Set", "value", "test.value", -2 ^ 63 - 2048 },
    { "Set", "value", "test.value", 0 / 0 }, { "Set", "value", "test.value", 1 / 0 },
    { "SetNil", "name" }, { "SetNil", "name", "" },
    { "Names", "prefix", 5 }, { "Names", "prefix", true },
    { "ConditionRaise", "name" }, { "ConditionRaise", "name", "" },
    { "Wait", "timeout_ms" }, { "Wait", "timeout_ms", "0" }, { "Wait", "timeout_ms", 0.5 },
    { "Wait", "timeout_ms", -2 }, { "Wait", "condition", 0, "" }, { "Wait", "3", 0, "x", true },
    { "Wait", "2", 0, nil, n = 4 }, { "Wait", "handle", 0, 0.5 },
    { "EventSet", "handle" }, { "EventSet", "handle", "1" }, { "EventSet", "handle", 1.5 },
    { "GetPluginFile", "plugin" }, { "GetPluginFile", "plugin", "../x", "y" },
    { "GetPluginFile", "file", "x" }, { "GetPluginFile", "file", "x", "y/z" },
    { "GetPluginFile", "file", "x", ".." }, { "GetPluginFile", "file", "x", "y\0z" },
    { "GetPluginWorkdir", "plugin", "" }, { "GetPluginWorkdir", "plugin", "." },
    { "SettingStore", "name", "", "x" }, { "SettingStore", "value", "x" },
    { "SettingStore", "value", "x", 5 }, { "SettingRetrieve", "name" }, { "SettingRemove", "name", 5 },
    { "AgentEventWrite", "event" }, { "AgentEventWrite", "event", 5101 },
    { "AgentEventWrite", "code", { severity = 5 } },
    { "AgentEventWrite", "code", { code = 2 ^ 31, severity = 5 } },
    { "AgentEventWrite", "severity", { code = 1 } },
    { "AgentEventWrite", "severity", { code = 1, severity = "grave" } },
    { "AgentEventWrite", "severity", { code = 1, severity = -1 } },
    { "AgentEventWrite", "data", { code = 1, severity = 5, data = {} } },
    { "AgentEventWrite", "data", { code = 1, severity = 5, data = "\255" } },
    { "AgentEvents", "after_id", "x" }, { "AgentEvents", "limit", 0, 1.5 },
    { "Log", "level" }, { "Log", "level", "loud", "text" },
    { "Log", "text", "error" }, { "Log", "text", "error", {} },
    { "LogTrace", "module", "", "text" }, { "LogTrace", "text", "Appl" },
    { "LogTraceIsEnabled", "module" }, { "LogTraceIsEnabled", "module", "" },
}

TestArguments = {}

function TestArguments:testAWrongOneIsRefusedWithItsName()
    for _, row in ipairs(refused) do
        local member, argument = row[1], row[2]
        local ok, problem = pcall(dom[member], dom, table.unpack(row, 3, row.n))
        lu.assertIsFalse(ok, member .. " takes a wrong " .. argument)
        lu.assertStrContains(problem, ("dom:%s: argument '%s' "):format(member, argument))
    end
    lu.assertEquals(dom:Names("test."), {})
    lu.assertEquals(dom:AgentEvents(), {})
end

function TestArguments:testEveryMemberHasRefusals()
    local members = {}
    for _, row in ipairs(refused) do
        members[row[1]] = true
    end
    for member in pairs(getmetatable(dom).__index) do
        lu.assertIsTrue(members[member], member .. " is missing in the table above")
    end
end

function TestArguments:testTheErrorPointsToTheCaller()
    local line = debug.getinfo(1, "l").currentline + 1
    local _, problem = pcall(function() dom:Get(5) end)
    lu.assertStrContains(problem, ("arguments_test.lua:%d: dom:Get"):format(line))
end

function TestArguments:testAMemberIsCalledOnTheStoreOnly()
    for member, call in pairs(getmetatable(dom).__index) do
        for _, object in ipairs { "x", {}, io.stdout, 5 } do
            local ok, problem = pcall(call, object, "x", "y")
            lu.assertIsFalse(ok, member)
            lu.assertStrContains(problem, ("dom:%s: called on %s"):format(member, type(object)))
        end
    end
end
