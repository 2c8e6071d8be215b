local lu = require "luaunit"

TestVariables = {}

function TestVariables:tearDown()
    for _, name in ipairs(dom:Names("test.")) do
        dom:Set(name, nil)
        dom:SetNil(name)
    end
    lu.assertEquals(dom:Names("test."), {})
end

function TestVariables:testValuesComeBackAsTheyWereSetAndAsTextWithAllDigits()
    for value, text in pairs {
        [""] = "", ["äöü €"] = "äöü €", ["a\0b"] = "a\0b", ["\xff\xfe"] = "\xff\xfe", ["5"] = "5",
        [0] = "0", [-1] = "-1", [2 ^ 53 + 2] = "9007199254740994", [2 ^ 62] = "4611686018427387904",
        [-2 ^ 63] = "-9223372036854775808", [2 ^ 63 - 1024] = "9223372036854774784",
        [true] = "true", [false] = "false",
    } do
        dom:Set("test.value", value)
        lu.assertEquals({ dom:Get("test.value"), dom:GetString("test.value") }, { value, text })
    end
end

function TestVariables:testNamesAreSortedByBytesAndTakeAPrefixLiterally()
    for _, name in ipairs { "test.b", "test.a+", "test.a", "test.é", "test.B", "test.a.b" } do
        dom:Set(name, true)
    end
    for prefix, names in pairs {
        ["test."] = { "test.B", "test.a", "test.a+", "test.a.b", "test.b", "test.é" },
        ["test.a+"] = { "test.a+" }, ["test.[ab]"] = {}, ["app.path.b"] = { "app.path.bin" },
    } do
        lu.assertEquals(dom:Names(prefix), names)
    end
    lu.assertEquals(dom:Names(), dom:Names(""))
    lu.assertTableContains(dom:Names(), "app.path.bin")
end

function TestVariables:testNoModuleIsLookedForInTheCurrentFolder()
    lu.assertNotStrContains(";" .. package.path .. ";" .. package.cpath, ";.")
end

function TestVariables:testTheStoreIsOneAndOutlivesItsLuaObject()
    lu.assertIsTrue(rawequal(dom, dom0))
    lu.assertEquals({ type(dom), getmetatable(dom).__class }, { "userdata", "SLB.Dom" })
    dom:Set("test.kept", "here")
    for _, object in ipairs { dom, 5, {}, io.stdout } do
        getmetatable(dom).__gc(object)
    end
    collectgarbage()
    lu.assertEquals(dom:Get("test.kept"), "here")
end

TestConditions = {}

-- Raises conditions while nobody waits. Then every row is what a wait gives, and what it waits for.
local function expectWaits(raised, rows)
    for _, name in ipairs(raised) do
        lu.assertEquals(dom:ConditionRaise(name), 0)
    end
    for _, row in ipairs(rows) do
        lu.assertEquals(dom:Wait(row[1] and -1 or 0, table.unpack(row, 2)), row[1] or nil)
    end
end

function TestConditions:testRaisesBeforeAWaitCountOnce()
    expectWaits({ "a", "a" }, { { "a", "a" }, { false, "a" } })
    expectWaits({ "a" }, { { "a", "a" } })
end

function TestConditions:testTheFirstInTheListComesFirstAndTheOtherIsKept()
    expectWaits({ "a", "b" }, { { "b", "none", "b", "a" }, { false, "b" }, { "a", "b", "a" } })
end

function TestConditions:testAllCoroutinesSeeARaiseOnce()
    coroutine.wrap(expectWaits)({ "a" }, { { "a", "a" } })
    expectWaits({}, { { false, "a" } })
end

function TestConditions:testUnknownHandlesAreToldAndHarmNothing()
    for _, handle in ipairs { 0, -1, 999999, 2 ^ 62 } do
        lu.assertIsFalse(dom:EventSet(handle))
        lu.assertErrorMsgContains("not that of an open event", dom.Wait, dom, -1, handle)
    end
end

TestRecords = {}

function TestRecords:testSettingsAreAnyBytesAndTheLastValueCounts()
    local name, bytes = "test.setting", "a\0b\255\n\195\164"
    lu.assertNil(dom:SettingRetrieve(name))
    lu.assertEquals({ dom:SettingStore(name, "older"), dom:SettingStore(name, bytes), dom:SettingRetrieve(name) },
                    { true, true, bytes })
    lu.assertEquals(table.pack(dom:SettingRemove(name), dom:SettingRemove(name), dom:SettingRetrieve(name)),
                    { true, true, nil, n = 3 })
end

function TestRecords:testAgentEventsAreReadInTheirOrderFromAnyId()
    local before = os.time()
    local written = { { 1, "info", "ä|1" }, { 2, 2, "ä|2" }, { 3, "fatal", "ä|3" }, { -2 ^ 31, 5 } }
    for _, row in ipairs(written) do
        lu.assertTrue(dom:AgentEventWrite { code = row[1], severity = row[2], data = row[3] })
    end
    local function read(...)
        local rows = {}
        for i, event in ipairs(dom:AgentEvents(...)) do
            rows[i] = { event.code, event.severity, event.data }
            lu.assertEquals(math.floor(event.jtime / 1000), event.time)
            lu.assertTrue(event.time >= before and event.time <= os.time())
        end
        return rows
    end
    local expected = { { 1, 5, "ä|1" }, { 2, 2, "ä|2" }, { 3, 0, "ä|3" }, { -2 ^ 31, 5, "" } }
    local events = dom:AgentEvents()
    lu.assertEquals(read(), expected)
    lu.assertEquals(read(events[1].id, 2), { expected[2], expected[3] })
    lu.assertEquals(read(events[4].id), {})
end
