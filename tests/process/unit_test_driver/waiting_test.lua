-- Each of these leaves behind what the next must not meet.
local lu = require "luaunit"
local task = require "task"
local zelkaunit = require "zelkaunit"

local ended, now, log = {}, dom.Now, dom.Log

local function leaveBehind(name)
    task.start(name, function()
        local _, problem = pcall(dom.Wait, dom, -1)
        ended[#ended + 1] = name .. " " .. problem
    end)
end

TestWaiting = {}

function TestWaiting:setupClass()
    leaveBehind("class")
end

function TestWaiting:setUp()
    lu.assertEquals({ #task.list(), dom.Now, dom.Log }, { 2, now, log })
    leaveBehind("setUp")
    dom:Wait(0)
end

function TestWaiting:tearDown()
    leaveBehind("tearDown")
end

function TestWaiting:testATestWaitsWhileItsTasksRun()
    local queue = task.queue(1)
    task.start("put", function()
        for i = 1, 3 do queue:put(i) end
    end)
    lu.assertEquals({ queue:take(), queue:take(), queue:take() }, { 1, 2, 3 })
    lu.assertEquals(task.current().name, "TestWaiting.testATestWaitsWhileItsTasksRun")
    lu.assertErrorMsgEquals("cancelled", function()
        task.current():cancel()
        dom:Wait(0)
    end)
end

function TestWaiting:testBFakesEndWithATestThatFails()
    local real = zelkaunit.fake("Now", function(self, ...) return self == dom and select("#", ...) end)
    lu.assertEquals({ real, dom:Now(1, 2), zelkaunit.fake("Now", error) }, { now, 2, now })
    zelkaunit.fake("Wait", function() return "at once" end)
    lu.assertEquals(task.sleep(1000), "at once")
    zelkaunit.fake("Log", function(_, text) error(text) end)
    dom:Log("fails")
end

function TestWaiting:testCWhatCannotBeFakedIsNamed()
    lu.assertErrorMsgContains("dom has no member 'Nowhere'", zelkaunit.fake, "Nowhere", print)
    lu.assertErrorMsgContains("argument 'fn' must be a function", zelkaunit.fake, "Now", 5)
end

function TestWaiting:testDWhatWasLeftBehindWasCancelled()
    lu.assertEquals(ended, { "setUp cancelled", "setUp cancelled", "setUp cancelled" })
end

TestZLast = {}

function TestZLast:testTasksOfTheClassBeforeHaveEnded()
    lu.assertEquals({ ended[#ended], #task.list() }, { "class cancelled", 1 })
end
