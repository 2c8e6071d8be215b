local lu = require "luaunit"

-- The host replaces coroutine.create and coroutine.wrap; they have to do what Lua's own do.
TestCoroutines = {}

-- What a call gives, with its nils.
local function expect(expected, ...)
    expected.n = expected.n or #expected
    lu.assertEquals(table.pack(...), expected)
end

function TestCoroutines:testValuesGoInAndOutWithTheirNils()
    local thread = coroutine.create(function(...)
        local answer = table.pack(coroutine.yield(select("#", ...), ...))
        return answer.n, nil
    end)
    expect({ "suspended" }, coroutine.status(thread))
    expect({ true, 3, nil, "x", nil, n = 5 }, coroutine.resume(thread, nil, "x", nil))
    expect({ true, 2, nil, n = 3 }, coroutine.resume(thread, nil, nil))
    expect({ "dead" }, coroutine.status(thread))
    expect({ false, "cannot resume dead coroutine" }, coroutine.resume(thread))
end

function TestCoroutines:testAWrappedOneIsCalledLikeAFunctionAndYieldsAcrossAProtectedCall()
    local next = coroutine.wrap(function(...)
        return pcall(function(...) error(coroutine.yield(...), 0) end, ...)
    end)
    expect({ nil, "first", nil, n = 3 }, next(nil, "first", nil))
    expect({ false, "second" }, next("second"))
    lu.assertErrorMsgEquals("cannot resume dead coroutine", next)
end

function TestCoroutines:testAnErrorEndsAThreadAndIsPassedOn()
    local value = {}
    local function fail() error(value) end
    local thread = coroutine.create(fail)
    expect({ false, value }, coroutine.resume(thread))
    expect({ "dead" }, coroutine.status(thread))
    lu.assertIs(select(2, pcall(coroutine.wrap(fail))), value)
    local line = debug.getinfo(1, "l").currentline + 1
    local _, caught = pcall(function() return (coroutine.wrap(function() error("text", 0) end)()) end)
    lu.assertStrMatches(caught, (".*coroutines_test%%.lua:%d: text"):format(line))
end

function TestCoroutines:testARunningThreadIsNotResumed()
    local outer = coroutine.create(function()
        local self = coroutine.running()
        local inner = coroutine.create(function() return coroutine.status(self), coroutine.resume(self) end)
        return coroutine.status(self), coroutine.resume(inner)
    end)
    expect({ true, "running", true, "normal", false, "cannot resume non-suspended coroutine" },
           coroutine.resume(outer))
end

function TestCoroutines:testOnlyFunctionsBecomeThreads()
    for _, make in ipairs { coroutine.create, coroutine.wrap } do
        lu.assertErrorMsgContains("function expected, got number", make, 5)
        lu.assertErrorMsgContains("function expected, got no value", make)
    end
end

function TestCoroutines:testOneWithoutItsThreadIsAnErrorAndNoFault()
    local wrapped = coroutine.wrap(print)
    debug.setupvalue(wrapped, 1, nil)
    lu.assertErrorMsgContains("cannot resume dead coroutine", wrapped)
end

function TestCoroutines:testForgottenThreadsAreCollected()
    local alive = setmetatable({}, { __mode = "k" })
    for _ = 1, 1000 do
        local thread = coroutine.create(coroutine.yield)
        coroutine.resume(thread)
        alive[thread] = true
    end
    collectgarbage()
    lu.assertNil(next(alive))
end
