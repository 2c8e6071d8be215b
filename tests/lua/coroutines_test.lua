local lu = require "luaunit"

-- The host replaces coroutine.create and coroutine.wrap; they have to do what Lua's own do.
TestCoroutines = {}

function TestCoroutines:testValuesGoInAndOutWithTheirNils()
    local thread = coroutine.create(function(...)
        local answer = table.pack(coroutine.yield(select("#", ...), ...))
        return answer.n, nil
    end)
    lu.assertEquals(coroutine.status(thread), "suspended")
    lu.assertEquals(table.pack(coroutine.resume(thread, nil, "x", nil)),
                    { true, 3, nil, "x", nil, n = 5 })
    lu.assertEquals(table.pack(coroutine.resume(thread, nil, nil)), { true, 2, nil, n = 3 })
    lu.assertEquals(coroutine.status(thread), "dead")
    lu.assertEquals({ coroutine.resume(thread) }, { false, "cannot resume dead coroutine" })
end

function TestCoroutines:testAWrappedOneIsCalledLikeAFunction()
    local words = {}
    local function each(list)
        return coroutine.wrap(function()
            for _, word in ipairs(list) do
                coroutine.yield(word)
            end
        end)
    end
    for word in each { "a", "b", "c" } do
        words[#words + 1] = word
    end
    lu.assertEquals(words, { "a", "b", "c" })
end

function TestCoroutines:testAnErrorEndsAThread()
    local thread = coroutine.create(function() error("went wrong", 0) end)
    lu.assertEquals({ coroutine.resume(thread) }, { false, "went wrong" })
    lu.assertEquals(coroutine.status(thread), "dead")
end

function TestCoroutines:testAWrappedOnePassesItsErrorOn()
    local value = {}
    local _, caught = pcall(coroutine.wrap(function() error(value) end))
    lu.assertIs(caught, value)
    local line = debug.getinfo(1, "l").currentline + 1
    _, caught = pcall(function() return (coroutine.wrap(function() error("text", 0) end)()) end)
    lu.assertStrMatches(caught, (".*coroutines_test%%.lua:%d: text"):format(line))
    local ended = coroutine.wrap(function() end)
    ended()
    lu.assertErrorMsgEquals("cannot resume dead coroutine", ended)
end

function TestCoroutines:testARunningThreadIsNotResumed()
    local inner
    local outer = coroutine.create(function()
        local self = coroutine.running()
        inner = coroutine.create(function() return coroutine.status(self), coroutine.resume(self) end)
        return coroutine.status(self), coroutine.resume(inner)
    end)
    lu.assertEquals({ coroutine.resume(outer) },
                    { true, "running", true, "normal", false, "cannot resume non-suspended coroutine" })
end

function TestCoroutines:testAYieldCrossesAProtectedCall()
    local next = coroutine.wrap(function()
        return pcall(function() error(coroutine.yield("first"), 0) end)
    end)
    lu.assertEquals(next(), "first")
    lu.assertEquals({ next("second") }, { false, "second" })
end

function TestCoroutines:testOnlyFunctionsBecomeThreads()
    for _, make in ipairs { coroutine.create, coroutine.wrap } do
        lu.assertErrorMsgContains("function expected, got number", make, 5)
        lu.assertErrorMsgContains("function expected, got no value", make)
    end
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
