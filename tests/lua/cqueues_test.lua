local lu = require "luaunit"
local task = require "task"
local cqueues = require "task.cqueues"
local condition = require "cqueues.condition"
local sockets = require "cqueues.socket"

local LIMIT = 60000 -- milliseconds; for what comes soon

-- How many tasks and descriptors there are.
local function holdings()
    collectgarbage()
    collectgarbage() -- what was reached by what has a finaliser
    local count = 0
    for _ in require("lfs").dir("/proc/self/fd") do
        count = count + 1
    end
    return { #task.list(), count }
end

TestCqueues = {}

function TestCqueues:setUp()
    self.holdings = holdings()
end

function TestCqueues:tearDown()
    lu.assertEquals(holdings(), self.holdings)
end

function TestCqueues:testACoroutineWaitsAloneAndEachSeesEachRaise()
    local cq, seen, asked = cqueues.new(), {}, task.queue()
    local raiser = task.every(1, "raiser", function()
        dom:ConditionRaise(asked:take(LIMIT)) -- maybe while one of them does not wait
    end)
    for name = 1, 2 do
        cq:wrap(coroutine.wrap(function() -- below a coroutine of one's own
            for _ = 1, 2 do
                asked:put("cq.news")
                table.insert(seen, dom:Wait(LIMIT, "cq.never", "cq.news") .. name)
                cqueues.sleep(0.001)
            end
        end))
    end
    lu.assertTrue(cq:loop())
    lu.assertItemsEquals(seen, { "cq.news1", "cq.news1", "cq.news2", "cq.news2" })
    local unyielding = ("x"):gsub("x", function() return tostring(dom:Wait(1)) end)
    cq:wrap(function() error(unyielding .. tostring(dom:Wait(1, "cq.never")), 0) end)
    lu.assertEquals(select(2, cq:loop()), "nilnil")
    cq:close()
    raiser:cancel()
    raiser:join()
end

function TestCqueues:testCancellingReachesTheLoopAndEachCoroutineThatWaits()
    local heard, empty = {}, task.queue()
    local waiter = task.start("waiter", function()
        local cq = cqueues.new()
        for _, wait in ipairs { task.sleep, empty.take } do
            cq:wrap(function(...)
                for _ = 1, 2 do
                    table.insert(heard, select(2, pcall(wait, ...)))
                end
            end, wait == task.sleep and LIMIT or empty)
        end
        cq:wrap(function() task.current():cancel() end)
        return cq:loop()
    end)
    lu.assertEquals({ waiter:join(LIMIT) }, { nil, "cancelled" })
    lu.assertEquals(heard, { "cancelled", "cancelled", "cancelled", "cancelled" })
end

function TestCqueues:testOutsideOfControllersEachTaskWaitsForItself()
    local signal, talks, arrived = condition.new(), {}, task.queue()
    for i = 1, 3 do
        talks[i] = task.start("talk", function()
            local near, far = sockets.pair()
            task.start("writer", function() far:write(i .. "\n"):close() end)
            arrived:put(near:read("*l"))
            near:close()
            return signal:wait(0.001), arrived:put(i), signal:wait()
        end)
    end
    local values = {}
    for i = 1, 6 do
        values[i] = arrived:take(LIMIT)
    end
    lu.assertItemsEquals(values, { "1", "2", "3", 1, 2, 3 })
    signal:signal()
    for _, talk in ipairs(talks) do
        lu.assertEquals({ talk:join(LIMIT) }, { true, false, true, true })
    end
end

function TestCqueues:testWhatIsClosedOrNeverSteppedHoldsUpNobody()
    local queue = task.queue()
    local cq = cqueues.new():wrap(function() queue:take() end)
    local looping = task.start("looping", function() return pcall(cq.loop, cq) end)
    local taker = task.start("taker", function() return queue:take(LIMIT) end)
    dom:Wait(0)
    cq:close()
    lu.assertStrContains(select(3, looping:join(LIMIT)), "closed")
    queue:put("value")
    lu.assertEquals({ taker:join(LIMIT) }, { true, "value" })
end

function TestCqueues:testTheStubDescribesTheModuleTask()
    local docs = (debug.getinfo(1, "S").source:match("^@(.*/)") or "./") .. "../../docs/"
    local described, members = assert(loadfile(docs .. "lua/task.d.lua", "t"))(), {}
    for name in pairs(task) do
        members[name] = described[name]
    end
    lu.assertEquals(described, members)
end
