-- The library cqueues, and what stands on it, such as lua-http, waiting through the host: while a
-- controller waits the other tasks run, and a coroutine of a controller may wait with dom:Wait.
-- docs/lua/task.d.lua describes the module, whose value is cqueues itself.

local cqueues = require "cqueues"
local auxlib = require "cqueues.auxlib"
local condition = require "cqueues.condition"
local tasks = require "task.core"
local core = require "task.cqueues.core"

local dom = dom
local running, yield, POLL = cqueues.running, coroutine.yield, cqueues._POLL
local LONGEST = 4e6 -- seconds; what is longer has no limit
local LAST_WAITS = 100 -- of the coroutines of a cancelled task, together

core.setUp(running, POLL)

local function milliseconds(seconds)
    local isLimited = seconds and seconds < LONGEST -- not if it is no number
    return isLimited and math.max(0, math.ceil(seconds * 1000)) or -1
end

-- ---- controllers ----

-- By controller: what wakes those who wait for it when it is closed.
local closings = setmetatable({}, { __mode = "k" })

local step

-- Each coroutine that waits by the host is told that the task is cancelled, by an error. It may fail of
-- that, which ends the step, or wait again a few times.
local function cancelCoroutines(cq)
    for _ = 1, cq:count() + LAST_WAITS do
        if not core.wake() then
            break
        end
        step(cq, 0)
    end
end

step = cqueues.interpose("step", function(self, timeout)
    if running() then -- then cqueues has the outer controller wait for this one
        return step(self, timeout)
    end
    local closing = closings[self] or tasks.signal()
    closings[self] = closing
    local limit = milliseconds(timeout)
    local ok, fired = pcall(dom.Wait, dom, limit, self, closing)
    if not ok then
        if tasks.isCancelled() then
            cancelCoroutines(self)
        end
        error(fired, 0)
    end
    local isStateClosing = fired == nil and limit < 0 -- then there are no tasks to be held up
    return step(self, isStateClosing and timeout or 0)
end)

local close
close = cqueues.interpose("close", function(self)
    if closings[self] then
        tasks.fire(closings[self], math.huge)
    end
    return close(self)
end)

local attach
attach = cqueues.interpose("attach", function(self, thread)
    if type(thread) == "thread" then
        tasks.remember(thread)
        core.look(thread)
    end
    return attach(self, thread)
end)

local wrap
wrap = cqueues.interpose("wrap", function(self, f, ...)
    if type(f) ~= "function" then
        return wrap(self, f, ...) -- says so
    end
    local body, arguments = f, table.pack(...)
    if arguments.n > 0 then
        body = function()
            return f(table.unpack(arguments, 1, arguments.n))
        end
    end
    return self:attach(coroutine.create(body))
end)

-- Coroutines inside those of a controller pass on what goes to the controller.
coroutine.resume = auxlib.resume
coroutine.wrap = auxlib.wrap

-- ---- waiting outside of controllers ----

-- Through a controller of its own, which takes all that cqueues can wait for, and knows when another
-- task closes it.
local function pollAlone(...)
    local cq, results = cqueues.new(), nil
    wrap(cq, function(...)
        results = table.pack(yield(POLL, ...))
    end, ...)
    local ok, isDone, problem = step(cq, 0)
    if ok then
        ok, isDone, problem = pcall(cq.loop, cq)
    else
        ok, isDone, problem = true, false, isDone
    end
    cq:close()
    if not ok then
        error(isDone, 0)
    elseif not isDone then
        error(problem, 0)
    end
    return table.unpack(results, 1, results.n)
end

local function poll(...)
    local count, first = select("#", ...), ...
    if running() then
        return yield(POLL, ...)
    elseif count == 0 or (count == 1 and type(first) == "number") then
        dom:Wait(milliseconds(first or 0))
        return ...
    end
    return pollAlone(...)
end

-- Modules that were loaded before hold the function cqueues.poll itself, so it is changed from within:
-- it yields where a controller runs, and from now on wherever it is called, by the function above.
local function replaceUpvalue(f, name, value)
    local index = 1
    while debug.getupvalue(f, index) ~= name do
        assert(debug.getupvalue(f, index), "task.cqueues does not know this version of cqueues")
        index = index + 1
    end
    debug.setupvalue(f, index, value)
end

replaceUpvalue(cqueues.poll, "running", function() return true end)
replaceUpvalue(cqueues.poll, "yield", function(_, ...) return poll(...) end)

-- As condition:wait has it.
local function checkWhy(self, why, ...)
    if why == self then
        return true, ...
    end
    return false, why, ...
end

local wait
wait = condition.interpose("wait", function(self, ...)
    if running() then
        return wait(self, ...)
    end
    return checkWhy(self, poll(self, ...))
end)

return cqueues
