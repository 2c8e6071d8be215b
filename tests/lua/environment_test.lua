local lu = require "luaunit"

TestStoreObject = {}

function TestStoreObject:testBothGlobalsAreTheOneStore()
    lu.assertIsTrue(rawequal(dom, dom0))
    lu.assertEquals(type(dom), "userdata")
    lu.assertEquals(getmetatable(dom).__class, "SLB.Dom")
end

function TestStoreObject:testTheStoreOutlivesItsLuaObject()
    local collect = getmetatable(dom).__gc
    dom:Set("test.kept", "here")
    for _, object in ipairs { dom, 5, {}, io.stdout } do
        collect(object)
    end
    collectgarbage()
    lu.assertEquals(dom:Get("test.kept"), "here")
    dom:SetNil("test.kept")
end

TestTrace = {}

function TestTrace:tearDown()
    dom:SetNil("app.trace")
end

function TestTrace:testAModuleIsTracedWhileItIsNamed()
    lu.assertIsFalse(dom:LogTraceIsEnabled("LuaTest"))
    dom:Set("app.trace", "Other, LuaTest")
    lu.assertIsTrue(dom:LogTraceIsEnabled("LuaTest"))
    lu.assertIsFalse(dom:LogTraceIsEnabled("luatest"))
    dom:SetNil("app.trace")
    lu.assertIsFalse(dom:LogTraceIsEnabled("LuaTest"))
end
