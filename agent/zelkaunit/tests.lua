-- What the test driver does so that a test may wait, and so that no test meets what another has left.

local core = require "task.core"
local luaunit = require "luaunit"
local task = require "task"

local dom = dom
local tests = {}

local members = getmetatable(dom).__index
local real = {} -- the members of `dom`, whatever a test puts in their places
for name, member in pairs(members) do
    real[name] = member
end

local isTesting = false

-- Until the running test is over, dom:NAME(...) is fn(dom, ...). Returns the real member.
function tests.fake(name, fn)
    if not real[name] then
        error(("zelkaunit.fake: dom has no member '%s'"):format(tostring(name)), 2)
    elseif type(fn) ~= "function" then
        error(("zelkaunit.fake: argument 'fn' must be a function, but it is a %s"):format(type(fn)), 2)
    elseif not isTesting then
        error("zelkaunit.fake: no test is running", 2)
    end
    members[name] = fn
    return real[name]
end

local function restoreMembers()
    for name, member in pairs(real) do
        members[name] = member
    end
end

local function livingTasks()
    local living = {}
    for _, one in ipairs(task.list()) do
        living[one] = true
    end
    return living
end

-- Ends all tasks but those in `kept`, and what they start while they end.
local function endTasks(kept)
    local left
    repeat
        left = nil
        for _, one in ipairs(task.list()) do
            if not kept[one] then
                one:cancel()
                left = core.ended(one)
            end
        end
        if left then
            real.Wait(dom, -1, left)
        end
    until not left
end

-- LuaUnit's protected call of one function, in a task of its own.
local function callInTask(runner, instance, method, name)
    local call = luaunit.LuaUnit.protectedCall
    local test = core.start(name or "test", false, pcall, call, runner, instance, method, name)
    local ended = core.ended(test)
    repeat
        if real.StopRequested(dom) then
            endTasks {}
            error("the run was asked to stop", 0)
        end
        real.Wait(dom, -1, ended, "app.stop") -- a test may raise the condition, too
    until not core.ended(test)
    local _, ok, result = core.results(test)
    if not ok then
        error(result, 0)
    end
    return result
end

-- Has a runner run its tests as tasks that do not meet those of other tests.
function tests.separate(runner)
    local class = luaunit.LuaUnit
    local beforeClass, beforeTest = {}, {}
    runner.protectedCall = callInTask
    function runner:startClass(...)
        beforeClass = livingTasks()
        return class.startClass(self, ...)
    end
    function runner:startTest(...)
        beforeTest, isTesting = livingTasks(), true
        return class.startTest(self, ...)
    end
    function runner:endTest()
        endTasks(beforeTest)
        isTesting = false
        restoreMembers()
        return class.endTest(self)
    end
    function runner:endClass()
        class.endClass(self)
        endTasks(beforeClass)
    end
end

-- Ends what is left behind the last test, also tasks of the application: the run is over.
function tests.endAll()
    restoreMembers()
    endTasks {}
end

-- The milliseconds of dom:Now.
function tests.now()
    return real.Now(dom)
end

return tests
