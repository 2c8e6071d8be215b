local lu = require "luaunit"
local task = require "task"

TestTasks = {}

function TestTasks:testEachRunsFromTheNextWaitOnAndHandsItsResultsOver()
    local log = {}
    local function work(name)
        for i = 1, 2 do
            log[#log + 1] = name .. i
            task.sleep(0)
        end
        return name, nil, 3
    end
    local a, b = task.start("a", work, "a"), task.start("b", work, "b")
    lu.assertEquals(#log, 0)
    lu.assertEquals({ a.name, a:status(), #task.list() > 1 }, { "a", "ready", true })
    lu.assertEquals({ a:join() }, { true, "a", nil, 3 })
    lu.assertEquals({ b:join() }, { true, "b", nil, 3 })
    lu.assertEquals({ b:join() }, { true, "b", nil, 3 })
    lu.assertEquals(log, { "a1", "b1", "a2", "b2" })
    lu.assertEquals(a:status(), "done")
end

function TestTasks:testAreStillThoseOfTheModuleThatIsLoadedAnew()
    local old = task.start("old", function() return 1 end)
    package.loaded["task"], package.loaded["task.core"] = nil, nil
    local again = require "task"
    lu.assertEquals({ old:join() }, { true, 1 })
    lu.assertEquals({ again.start("new", function() return 2 end):join() }, { true, 2 })
end

-- From there the wait has to find its way out, and back.
local places = {
    plain = function() return dom:Wait(-1, "test.go") end,
    pcall = function() return select(2, pcall(function() return dom:Wait(-1, "test.go") end)) end,
    metamethod = function()
        local t = setmetatable({}, { __index = function() return dom:Wait(-1, "test.go") end })
        return t.x
    end,
    iterator = function()
        for fired in function(_, last) return not last and dom:Wait(-1, "test.go") or nil end do
            return fired
        end
    end,
    nested = function()
        local function deep(n)
            if n == 0 then
                return dom:Wait(-1, "test.go")
            elseif n % 2 == 0 then
                return coroutine.wrap(deep)(n - 1)
            end
            return select(2, coroutine.resume(coroutine.create(deep), n - 1))
        end
        return deep(50)
    end,
    generator = function()
        local generator = coroutine.wrap(function()
            for i = 1, 3 do
                coroutine.yield(i, dom:Wait(-1, "test.go"))
            end
        end)
        local _, first = generator()
        return first
    end,
}

function TestTasks:testAWaitSuspendsTheTaskAtAnyDepthAndComesBack()
    for place, wait in pairs(places) do
        local other = 0
        local t = task.start(place, wait)
        local beside = task.start("beside", function() for _ = 1, 3 do other = other + 1 task.sleep(0) end end)
        beside:join()
        lu.assertEquals({ place, t:status(), other }, { place, "waiting", 3 })
        lu.assertEquals(dom:ConditionRaise("test.go"), 1)
        lu.assertEquals({ place, t:join() }, { place, true, "test.go" })
    end
end

function TestTasks:testAWaitThatCannotGiveWayBlocksAndCountsAllTheSame()
    local t = task.start("sort", function()
        local list = { 3, 1, 2 }
        table.sort(list, function(a, b) dom:Wait(0) return a < b end)
        return (("x"):gsub(".", function() return dom:Wait(1) or "none" end)), table.unpack(list)
    end)
    lu.assertEquals({ t:join() }, { true, "none", 1, 2, 3 })
end

function TestTasks:testACoroutineThatWaitsIsResumedByNobodyElse()
    local inner = coroutine.create(function() dom:Wait(-1, "test.inner") return 7 end)
    local t = task.start("outer", function() return coroutine.resume(inner) end)
    task.sleep(0)
    lu.assertEquals({ coroutine.resume(inner) }, { false, "cannot resume a coroutine that waits" })
    lu.assertErrorMsgContains("that waits", coroutine.wrap(function() assert(coroutine.resume(inner)) end))
    dom:ConditionRaise("test.inner")
    lu.assertEquals({ t:join() }, { true, true, 7 })
end

function TestTasks:testEachSeesEachRaiseThatComesAfterItsOwnLastLook()
    dom:ConditionRaise("test.look")
    local function count()
        local n = 0
        while dom:Wait(20, "test.look") do
            n = n + 1
        end
        return n
    end
    local a, b = task.start("a", count), task.start("b", count)
    for _ = 1, 3 do
        task.sleep(1)
        dom:ConditionRaise("test.look")
    end
    lu.assertEquals({ a:join() }, { true, 3 })
    lu.assertEquals({ b:join() }, { true, 3 })
end

function TestTasks:testAFailureIsToldOnceAndCancellingIsNone()
    local before = #dom:AgentEvents(0)
    local failed = task.start("failing", function() error("boom", 0) end)
    local value = task.start("value", function() error({ code = 5 }) end)
    local yields = task.start("yields", function() coroutine.yield() end)
    local long = task.start("long", function() error("x" .. ("ä"):rep(600), 0) end)
    local waits = task.start("waits", function() return pcall(dom.Wait, dom, -1), dom:Wait(-1) end)
    local new = task.start("new", function() return 1 end)
    new:cancel()
    lu.assertEquals({ failed:join() }, { nil, "boom" })
    lu.assertEquals({ value:join() }, { nil, { code = 5 } })
    lu.assertStrContains(select(2, yields:join()), "gives way by waiting")
    lu.assertIsTrue(waits:cancel())
    lu.assertEquals({ waits:join() }, { nil, "cancelled" })
    lu.assertEquals({ new:join() }, { nil, "cancelled" })
    lu.assertEquals({ failed:status(), waits:status(), new:status(), waits:cancel() },
        { "failed", "cancelled", "cancelled", false })
    local events = dom:AgentEvents(0)
    lu.assertEquals(#events - before, 4)
    lu.assertEquals({ events[before + 1].code, events[before + 1].data }, { 5201, "task|failing|boom" })
    lu.assertEquals(events[before + 4].data, "task|long|x" .. ("ä"):rep(511) .. " ... (178 bytes more)")
    lu.assertEquals(#select(2, long:join()), 1201)
end

function TestTasks:testOneThatDoesNotHearThatItIsCancelledLetsTheOthersRun()
    local enough = false
    local t = task.start("deaf", function() repeat pcall(dom.Wait, dom, -1) until enough end)
    task.sleep(0)
    t:cancel()
    lu.assertEquals({ t:join(5) }, { nil, "timeout" })
    enough = true
    lu.assertEquals({ t:join() }, { true })
end

function TestTasks:testJoinEndsInTimeAndNeverForItself()
    local t = task.start("long", function() dom:Wait(-1) end)
    lu.assertEquals({ t:join(1) }, { nil, "timeout" })
    t:cancel()
    lu.assertStrContains(select(2, task.start("self", function() task.current():join() end):join()), "itself")
end

function TestTasks:testBeatsGoOnBesideErrorsAndLeaveOutWhatWasMissed()
    local beats = 0
    local t = task.every(10, "beat", function()
        beats = beats + 1
        if beats == 1 then
            error("first")
        elseif beats == 2 then
            local till = dom:Now() + 25
            while dom:Now() < till do end
        elseif beats == 4 then
            dom:ConditionRaise("test.fourth")
        end
    end)
    lu.assertEquals(dom:Wait(60000, "test.fourth"), "test.fourth")
    t:cancel()
    lu.assertEquals({ t:join() }, { nil, "cancelled" })
end

function TestTasks:testAQueueHandsOnInOrderWaitsForRoomAndEnds()
    local q, got = task.queue(2), {}
    local producer = task.start("producer", function()
        for i = 1, 5 do
            q:put(i)
        end
        lu.assertEquals({ q:put(6, 1) }, { nil, "timeout" })
        q:close()
        return q:put(7)
    end)
    task.sleep(0)
    lu.assertEquals(producer:status(), "waiting")
    for i = 1, 3 do
        got[i] = q:take()
    end
    lu.assertEquals({ producer:join() }, { true, nil, "closed" })
    for v in q:each() do
        got[#got + 1] = v
    end
    lu.assertEquals({ got, q:take(1) }, { { 1, 2, 3, 4, 5 }, nil, "closed" })
    -- A taker that was woken and cancelled before it ran leaves the value to the next.
    q = task.queue()
    local first = task.start("first", function() return q:take() end)
    local second = task.start("second", function() return q:take() end)
    task.sleep(0)
    q:put("value")
    first:cancel()
    lu.assertEquals({ second:join(60000) }, { true, "value" })
    lu.assertEquals({ q:take(1) }, { nil, "timeout" })
end

function TestTasks:testDescriptorsAreWaitedForAndClosedOnesRefused()
    local ran = require("process").run { "sh", "-c", "sleep 0.01; echo out" }
    lu.assertEquals({ ran.code, ran.out }, { 0, "out\n" })
    lu.assertErrorMsgContains("task.readable: argument 'x' is closed", task.readable, -1)
    lu.assertErrorMsgContains("task.writable: argument 'x' must be a descriptor", task.writable, {})
    lu.assertErrorMsgContains("argument '2' cannot be waited for: Bad file descriptor", dom.Wait, dom, -1,
        task.readable(99999))
    local late = setmetatable({}, { __index = { timeout = function() return 0.001 end } })
    lu.assertEquals(dom:Wait(60000, late), late)
end

function TestTasks:testTenThousandWaitAndEachIsWokenByItself()
    local tasks = {}
    for i = 1, 10000 do
        tasks[i] = task.start("t" .. i, function() return dom:Wait(-1, "test.t" .. i) end)
    end
    task.sleep(0)
    for i = 1, 10000, 999 do
        lu.assertEquals(dom:ConditionRaise("test.t" .. i), 1)
        lu.assertEquals({ tasks[i]:join() }, { true, "test.t" .. i })
    end
    for _, t in ipairs(tasks) do
        t:cancel()
    end
    lu.assertEquals({ tasks[2]:join() }, { nil, "cancelled" })
end
