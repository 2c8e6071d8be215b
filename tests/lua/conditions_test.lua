local lu = require "luaunit"

TestConditions = {}

function TestConditions:testRaisesBeforeAWaitCountOnce()
    lu.assertEquals(dom:ConditionRaise("test.a"), 0) -- nobody waits at that moment
    dom:ConditionRaise("test.a")
    lu.assertEquals(dom:Wait(-1, "test.a"), "test.a")
    lu.assertNil(dom:Wait(0, "test.a"))
    dom:ConditionRaise("test.a")
    lu.assertEquals(dom:Wait(-1, "test.a"), "test.a")
end

function TestConditions:testTheFirstInTheListComesFirstAndTheOtherIsKept()
    dom:ConditionRaise("test.a")
    dom:ConditionRaise("test.b")
    lu.assertEquals(dom:Wait(-1, "test.none", "test.b", "test.a"), "test.b")
    lu.assertNil(dom:Wait(0, "test.b"))
    lu.assertEquals(dom:Wait(-1, "test.b", "test.a"), "test.a")
end

function TestConditions:testNothingRaisedEndsWithTheTime()
    lu.assertNil(dom:Wait(0))
    lu.assertNil(dom:Wait(20, "test.none", "test.never"))
end

function TestConditions:testAllCoroutinesSeeARaiseOnce()
    dom:ConditionRaise("test.a")
    local seen = coroutine.wrap(function() return dom:Wait(-1, "test.a") end)()
    lu.assertEquals(seen, "test.a")
    lu.assertNil(dom:Wait(0, "test.a"))
end

TestEvents = {}

function TestEvents:testAnUnknownHandleIsToldAndHarmsNothing()
    for _, handle in ipairs { 0, -1, 999999, 2 ^ 62 } do
        lu.assertIsFalse(dom:EventSet(handle))
        lu.assertErrorMsgContains("not that of an open event", dom.Wait, dom, -1, handle)
    end
end

function TestEvents:testMoreThanAWaitCanHoldAreRefused()
    local handles = {}
    for i = 1, 64 do
        handles[i] = i
    end
    lu.assertErrorMsgContains("at most 63 events", dom.Wait, dom, 0, table.unpack(handles))
end
