local lu = require "luaunit"
local task = require "task"
local cqueues = require "task.cqueues"
local condition = require "cqueues.condition"
local sockets = require "cqueues.socket"

local LIMIT = 60000 -- milliseconds; for what comes soon

-- Runs the functions as coroutines of one controller, in a task, whose results come back.
local function inController(...)
    local functions = { ... }
    return task.start("controller", function()
        local cq = cqueues.new()
        for _, f in ipairs(functions) do
            cq:wrap(f)
        end
        return cq:loop()
    end):join(LIMIT)
end

-- Those that are neither files nor sockets, which others open as well.
local function descriptors()
    collectgarbage()
    collectgarbage()
    local count = 0
    local lfs = require("lfs")
    for name in lfs.dir("/proc/self/fd") do
        local target = lfs.symlinkattributes("/proc/self/fd/" .. name, "target") or ""
        count = count + (target:find("^anon_inode") and 1 or 0)
    end
    return count
end

TestCqueues = {}

function TestCqueues:setUp()
    self.descriptors = descriptors()
end

function TestCqueues:tearDown()
    lu.assertEquals({ task.list(), descriptors() }, { { task.current() }, self.descriptors })
end

function TestCqueues:testACoroutineWaitsAloneAndEachSeesEachRaise()
    local seen, asked = {}, task.queue()
    local function watch(name)
        return function()
            local inner = coroutine.wrap(function() -- below a coroutine of one's own, too
                for i = 1, 2 do
                    asked:put(name)
                    seen[name .. i] = dom:Wait(LIMIT, "cq.never", "cq.news")
                    cqueues.sleep(0.001)
                end
            end)
            inner()
        end
    end
    local raiser = task.start("raiser", function()
        for _ = 1, 4 do -- the second raise may come while one of them does not wait
            asked:take(LIMIT)
            dom:ConditionRaise("cq.news")
        end
    end)
    lu.assertEquals({ inController(watch("a"), watch("b")) }, { true, true })
    lu.assertEquals(seen, { a1 = "cq.news", a2 = "cq.news", b1 = "cq.news", b2 = "cq.news" })
    lu.assertTrue(raiser:join(LIMIT))
    local results = { inController(function() error(dom:Wait(1, "cq.never") or "none", 0) end) }
    lu.assertEquals({ results[1], results[2], results[3] }, { true, false, "none" })
    lu.assertErrorMsgContains("must be", dom.Wait, dom, "x")
end

function TestCqueues:testWhereACoroutineCannotBeLeftTheWaitHoldsUpTheRest()
    local text
    inController(function() text = ("x"):gsub("x", function() return tostring(dom:Wait(1)) end) end)
    lu.assertEquals(text, "nil")
end

function TestCqueues:testCancellingReachesTheLoopAndEachCoroutineThatWaits()
    local heard, begun, empty = {}, task.queue(), task.queue()
    local waiter = task.start("waiter", function()
        local cq = cqueues.new()
        for i, wait in ipairs { task.sleep, empty.take, dom.Wait } do
            cq:wrap(function(...)
                begun:put(i)
                heard[i] = select(2, pcall(wait, ...))
                heard[i] = heard[i] .. select(2, pcall(task.sleep, 0)) -- it is told again
            end, ({ LIMIT, empty, dom })[i], i == 3 and -1 or nil)
        end
        cq:attach(coroutine.create(function() cqueues.sleep(LIMIT) end))
        return cq:loop()
    end)
    for _ = 1, 3 do
        lu.assertNotNil(begun:take(LIMIT))
    end
    waiter:cancel()
    lu.assertEquals({ waiter:join(LIMIT) }, { nil, "cancelled" })
    lu.assertEquals(heard, { "cancelledcancelled", "cancelledcancelled", "cancelledcancelled" })
end

function TestCqueues:testACoroutineThatIsNeverResumedTakesNoSignalFromOthers()
    local queue = task.queue()
    local cq = cqueues.new():wrap(function() queue:take() end)
    lu.assertTrue(cq:step())
    local taker = task.start("taker", function() return queue:take(LIMIT) end)
    dom:Wait(0)
    queue:put("value")
    lu.assertEquals({ taker:join(LIMIT) }, { true, "value" })
    cq:close()
end

function TestCqueues:testOutsideOfControllersEachTaskWaitsForItself()
    local signal, talks = condition.new(), {}
    for i = 1, 5 do
        talks[i] = task.start("talk", function()
            local near, far = sockets.pair()
            task.start("writer", function()
                far:write(i .. "\n")
                far:close()
            end)
            local line = near:read("*l")
            near:close()
            return line, signal:wait(0.001), (cqueues.poll(signal, 0.001))
        end)
    end
    for i, talk in ipairs(talks) do
        lu.assertEquals({ talk:join(LIMIT) }, { true, tostring(i), false, 0.001 })
    end
    local waiter = task.start("waiter", function() return signal:wait() end)
    dom:Wait(0)
    signal:signal()
    lu.assertEquals({ waiter:join(LIMIT) }, { true, true })
end

function TestCqueues:testAClosedControllerIsNotWaitedForAnyMore()
    local cq = cqueues.new():wrap(function() cqueues.sleep(LIMIT) end)
    local waiter = task.start("waiter", function() return pcall(cq.loop, cq) end)
    dom:Wait(1)
    cq:close()
    local _, ok, problem = waiter:join(LIMIT)
    lu.assertFalse(ok)
    lu.assertStrContains(problem, "closed")
end

function TestCqueues:testTheStubDescribesTheModuleTask()
    local docs = (debug.getinfo(1, "S").source:match("^@(.*/)") or "./") .. "../../docs/"
    local described, members = assert(loadfile(docs .. "lua/task.d.lua", "t"))(), {}
    for name in pairs(task) do
        members[name] = described[name]
    end
    lu.assertEquals(described, members)
end
