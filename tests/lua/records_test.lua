local lu = require "luaunit"

TestSettings = {}

function TestSettings:testAnyBytesComeBackAndTheLastValueCounts()
    local bytes = "a\0b\255\n\195\164"
    lu.assertNil(dom:SettingRetrieve("test.setting"))
    lu.assertTrue(dom:SettingStore("test.setting", "older"))
    lu.assertTrue(dom:SettingStore("test.setting", bytes))
    lu.assertEquals(dom:SettingRetrieve("test.setting"), bytes)
    lu.assertTrue(dom:SettingRemove("test.setting"))
    lu.assertTrue(dom:SettingRemove("test.setting"))
    lu.assertNil(dom:SettingRetrieve("test.setting"))
end

TestAgentEvents = {}

function TestAgentEvents:testAreReadInTheirOrderFromAnyId()
    local before = os.time()
    for code, severity in ipairs { "info", 2, "fatal" } do
        lu.assertTrue(dom:AgentEventWrite { code = code, severity = severity, data = "ä|" .. code })
    end
    lu.assertTrue(dom:AgentEventWrite { code = -2 ^ 31, severity = 5 })

    local events = dom:AgentEvents()
    lu.assertEquals(#events, 4)
    lu.assertEquals({ events[1].severity, events[2].severity, events[3].severity }, { 5, 2, 0 })
    lu.assertEquals(events[3].data, "ä|3")
    lu.assertEquals({ events[4].code, events[4].data }, { -2 ^ 31, "" })
    lu.assertEquals(math.floor(events[1].jtime / 1000), events[1].time)
    lu.assertTrue(events[1].time >= before and events[1].time <= os.time())

    local some = dom:AgentEvents(events[1].id, 2)
    lu.assertEquals({ #some, some[1].code, some[2].code }, { 2, 2, 3 })
    lu.assertEquals(dom:AgentEvents(events[4].id), {})
end
