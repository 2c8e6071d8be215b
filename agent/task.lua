-- Tasks: functions that run side by side. A task gives way only where it waits (dom:Wait, and what is
-- made of it), so between two waits nobody else changes anything.

local core = require "task.core"

local dom = dom
local task = {}
local methods = core.methods

local function check(member, argument, isRight, wanted, value, level)
    if not isRight then
        error(("%s: argument '%s' must be %s, but it is %s"):format(member, argument, wanted,
            value == nil and "missing" or tostring(value)), level or 3)
    end
end

local function checkStart(member, name, fn)
    check(member, "name", type(name) == "string" and name ~= "", "a text that is not empty", name, 4)
    check(member, "fn", type(fn) == "function", "a function", fn, 4)
end

-- Runs fn(...) from the next wait on.
function task.start(name, fn, ...)
    checkStart("task.start", name, fn)
    return core.start(name, false, fn, ...)
end

-- The same; if it fails, the application is asked to stop and the run ends with exit code 2.
function task.essential(name, fn, ...)
    checkStart("task.essential", name, fn)
    return core.start(name, true, fn, ...)
end

local function explain(problem)
    return { text = tostring(problem), traceback = debug.traceback(nil, 2) }
end

-- Calls fn now and every `ms` milliseconds; beats that are missed meanwhile are left out.
function task.every(ms, name, fn)
    check("task.every", "ms", type(ms) == "number" and ms > 0, "a number of milliseconds above 0", ms)
    checkStart("task.every", name, fn)
    return core.start(name, false, function()
        local beat = dom:Now()
        while true do
            local ok, problem = xpcall(fn, explain)
            if not ok and core.isCancelled() then
                error("cancelled", 0)
            elseif not ok then
                core.report(name, problem.text, problem.traceback)
            end
            local now = dom:Now()
            beat = beat + math.max(1, math.ceil((now - beat) / ms)) * ms
            dom:Wait(math.ceil(beat - now))
        end
    end)
end

function task.sleep(ms)
    return dom:Wait(ms)
end

task.current = core.current
task.list = core.list

function methods:cancel()
    return core.cancel(self)
end

function methods:status()
    return core.status(self)
end

-- true and what the task has returned; nil and its error; or nil and "timeout".
function methods:join(ms)
    local ended = core.ended(self)
    if ended and not dom:Wait(ms or -1, ended) then
        return nil, "timeout"
    end
    return core.results(self)
end

-- ---- queues ----

local Queue = {}
Queue.__index = Queue

-- Values handed from task to task, in their order; `limit` of them at most wait to be taken.
function task.queue(limit)
    check("task.queue", "limit", limit == nil or (type(limit) == "number" and limit >= 1),
        "a number from 1 on", limit)
    return setmetatable({
        limit = limit or math.huge,
        first = 1, last = 0,
        closed = false,
        filled = core.signal(), emptied = core.signal(),
    }, Queue)
end

-- Waits for a signal that wakes one waiter. A waiter that leaves by an error hands it on.
local function waitFor(signal, deadline)
    local left = deadline and math.max(0, math.ceil(deadline - dom:Now())) or -1
    local ok, fired = pcall(dom.Wait, dom, left, signal)
    if not ok then
        core.fire(signal, 1)
        error(fired, 0)
    end
    return fired
end

-- true; or nil and "timeout" or "closed".
function Queue:put(value, ms)
    check("queue:put", "value", value ~= nil, "anything but nil", value)
    local deadline = ms and dom:Now() + ms
    while not self.closed and self.last - self.first + 1 >= self.limit do
        if not waitFor(self.emptied, deadline) then
            return nil, "timeout"
        end
    end
    if self.closed then
        return nil, "closed"
    end
    self.last = self.last + 1
    self[self.last] = value
    core.fire(self.filled, 1)
    return true
end

-- The value; or nil and "timeout" or "closed". What was put before the end is still to be had.
function Queue:take(ms)
    local deadline = ms and dom:Now() + ms
    while self.first > self.last do
        if self.closed then
            return nil, "closed"
        elseif not waitFor(self.filled, deadline) then
            return nil, "timeout"
        end
    end
    local value = self[self.first]
    self[self.first] = nil
    self.first = self.first + 1
    core.fire(self.emptied, 1)
    return value
end

function Queue:close()
    self.closed = true
    core.fire(self.filled, math.huge)
    core.fire(self.emptied, math.huge)
end

-- For a loop over everything that comes, until the queue is closed.
function Queue:each()
    return function()
        return (self:take())
    end
end

-- ---- descriptors ----

local Descriptor = {}
Descriptor.__index = Descriptor

function Descriptor:pollfd()
    return self.descriptor
end

function Descriptor:events()
    return self.mode
end

local function descriptorOf(member, x)
    local descriptor = x
    if type(x) == "table" or type(x) == "userdata" then
        for _, method in ipairs { "pollfd", "getfd", "fileno" } do
            local found, call = pcall(function() return x[method] end)
            if found and call then
                descriptor = call(x)
                break
            end
        end
    end
    check(member, "x", type(descriptor) == "number",
        "a descriptor, or an object with a method getfd, fileno or pollfd", x)
    if descriptor < 0 then
        error(member .. ": argument 'x' is closed", 3)
    end
    return descriptor
end

-- Things to wait for: dom:Wait(timeout, task.readable(socket)).
function task.readable(x)
    return setmetatable({ descriptor = descriptorOf("task.readable", x), mode = "r" }, Descriptor)
end

function task.writable(x)
    return setmetatable({ descriptor = descriptorOf("task.writable", x), mode = "w" }, Descriptor)
end

return task
