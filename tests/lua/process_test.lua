local lu = require "luaunit"
local process = require "process"

local realDom = dom
local pid = process.run({ "sh", "-c", "echo $PPID" }).out:match("%d+")
local folder = process.run({ "mktemp", "-d" }).out:match("[^\n]+")

local function sh(script, options)
    options = options or {}
    options[1], options[2], options[3] = "sh", "-c", script
    return process.run(options)
end

-- Every outcome in one table, to be compared with one comparison.
local function outcome(part, value, out, err)
    return { [part] = value, out = out or "", err = err or "", truncated = false, timed_out = false }
end

-- What the agent has of children, besides this one, and of descriptors for them.
local function holdings()
    collectgarbage()
    return sh(("grep -ls '^PPid:\t%s$' /proc/[0-9]*/status | wc -l; ls -l /proc/%s/fd | grep -cE 'pipe:|pidfd'"):format(pid, pid)).out
end

-- A script that holds a lock together with a child of its own, and does not end.
local holdLock = "exec 9>lock; flock -n 9 || exit 1; sleep 1000 & echo held; wait"

local function expectThatNobodyHoldsTheLock()
    lu.assertEquals(process.run { "flock", "lock", "true", cwd = folder, timeout = 60000 }, outcome("code", 0))
end

-- Calls a function of `process` while `react` is called whenever a wait is over; it returns how many
-- milliseconds pass at once then.
local function reactingToWaits(react, f, ...)
    local passed = 0
    dom = {
        Now = function() return realDom:Now() + passed end,
        Wait = function(_, ...)
            local ready = realDom:Wait(...)
            passed = passed + react()
            return ready
        end,
    }
    local results = table.pack(pcall(f, ...))
    dom = realDom
    return table.unpack(results, 1, results.n)
end

TestProcess = {}

function TestProcess:setUp()
    self.holdings = holdings()
end

function TestProcess:tearDown()
    lu.assertEquals(holdings(), self.holdings)
end

function TestProcess:testTheEndAndTheBytesOfBothOutputsComeBack()
    lu.assertEquals(sh("printf 'a\\0\\377'; printf 'b\\n' >&2; exit 3"), outcome("code", 3, "a\0\255", "b\n"))
    lu.assertEquals(sh("kill -TERM $$"), outcome("signal", 15))
    lu.assertEquals(process.run { "printf", "%s|", "", "\255 ä", "$x" }, outcome("code", 0, "|\255 ä|$x|"))
end

function TestProcess:testAProgramGetsAFreshStart()
    local script = "ls /proc/$$/fd; readlink /proc/$$/fd/0; cut -d ' ' -f 5 /proc/$$/stat; echo $$"
    lu.assertStrMatches(sh(script).out, "0\n1\n2\n/dev/null\n(%d+)\n%1\n")
    lu.assertEquals(process.run({ "grep", "SigBlk", "/proc/self/status" }).out, "SigBlk:\t0000000000000000\n")
end

function TestProcess:testInputMayExceedAPipeAndNeedNotBeRead()
    local bytes = ("\0\255\n."):rep(250000)
    lu.assertTrue(process.run({ "cat", input = bytes }).out == bytes)
    lu.assertEquals(process.run { "true", input = bytes }, outcome("code", 0))
    lu.assertEquals(sh("exec <&-; echo on", { input = bytes }), outcome("code", 0, "on\n"))
    lu.assertEquals(process.run { "cat", input = "" }, outcome("code", 0))
end

function TestProcess:testEachOutputIsKeptUpToTheLimit()
    local result = sh("head -c 300000 /dev/zero; printf 12345678 >&2", { limit = 8 })
    lu.assertEquals(result, { code = 0, out = ("\0"):rep(8), err = "12345678", truncated = true, timed_out = false })
    lu.assertEquals(#sh("head -c 3000000 /dev/zero >&2").err, 1048576)
    lu.assertEquals(process.run({ "echo", limit = 0 }).out, "")
end

function TestProcess:testItIsOverWhenTheProgramHasEndedAndNotBefore()
    local left = sh("sleep 1000 & echo $!") -- holds the pipes
    lu.assertEquals({ left.code, process.run({ "kill", "-9", left.out:match("%d+") }).code }, { 0, 0 })
    lu.assertEquals(sh("exec >&- 2>&-; cat >/dev/null; exit 7", { input = (" "):rep(1000000) }), outcome("code", 7))
end

function TestProcess:testATimeoutKillsTheWholeGroup()
    local result = process.run { "sleep", "1000", timeout = 50 }
    lu.assertEquals({ result.signal, result.timed_out }, { 9, true })
    result = sh("while :; do echo; done", { timeout = 50 })
    lu.assertEquals({ result.signal, result.timed_out }, { 9, true })
    local function timeOut() return 3600000 end
    local _, late = reactingToWaits(timeOut, sh, holdLock, { cwd = folder, timeout = 3600000 })
    lu.assertEquals(late, { signal = 9, timed_out = true, truncated = false, out = "held\n", err = "" })
    expectThatNobodyHoldsTheLock()
    lu.assertEquals(process.run { "true", timeout = 3600000 }, outcome("code", 0))
end

function TestProcess:testACancelledWaitKillsTheWholeGroupAndTheErrorGoesOn()
    local reason = {}
    local results = { reactingToWaits(function() error(reason, 0) end, sh, holdLock, { cwd = folder }) }
    lu.assertEquals({ #results, results[1], rawequal(results[2], reason) }, { 2, false, true })
    expectThatNobodyHoldsTheLock()
end

function TestProcess:testAProgramThatNobodyWaitsForIsKilledWithItsGroup()
    local program = require("process.core").start { "sh", "-c", holdLock, cwd = folder }
    realDom:Wait(-1, { pollfd = function() return program:descriptor("out") end, events = function() return "r" end })
    program = nil
    collectgarbage()
    expectThatNobodyHoldsTheLock()
end

function TestProcess:testFolderEnvironmentAndPathAreThoseOfTheChild()
    lu.assertEquals(process.run({ "pwd", "-P", cwd = folder }).out, process.run({ "readlink", "-f", folder }).out)
    lu.assertEquals(process.run({ "env", env = { A = "ä=1" } }).out, "A=ä=1\n")
    lu.assertEquals(process.run({ "/usr/bin/env", env = {} }).out, "")
    sh([[mkdir bin no no/tool; printf '#!/bin/sh\necho "$0 $PATH"\n' >bin/tool
        chmod +x bin/tool; cp bin/tool no/plain; chmod -x no/plain]], { cwd = folder })
    for path, out in pairs { ["nowhere:no:bin"] = "bin/tool", [folder .. "/bin"] = folder .. "/bin/tool" } do
        lu.assertEquals(process.run({ "tool", cwd = folder, env = { PATH = path } }).out, out .. " " .. path .. "\n")
    end
    lu.assertEquals(process.run({ "tool", cwd = folder .. "/bin", env = { PATH = ":/nowhere" } }).code, 0)
    lu.assertEquals(process.run({ "bin/tool", cwd = folder }).code, 0)
    lu.assertEquals({ process.run { "plain", cwd = folder, env = { PATH = "no:bin" } } },
        { nil, "plain: Permission denied" })
end

function TestProcess:testWhatCannotBeStartedIsToldWithItsReason()
    lu.assertEquals({ process.run { "no-such-program" } }, { nil, "no-such-program: No such file or directory" })
    lu.assertEquals({ process.run { "/etc", input = "x" } }, { nil, "/etc: Permission denied" })
    lu.assertEquals({ process.run { "true", cwd = "/etc/passwd" } }, { nil, "true: /etc/passwd: Not a directory" })
end

function TestProcess:testWrongArgumentsRaiseAnErrorThatNamesThemAndTheCaller()
    local tooFew = { "true", "", nil, "x" }
    for argument, options in pairs {
        options = 5, ["argv[1]"] = {}, ["argv[2]"] = { "true", 5 }, ["argv[3]"] = tooFew, ["0"] = { "true", [0] = "x" },
        Timeout = { "true", Timeout = 1 }, timeout = { "true", timeout = -1 }, limit = { "true", limit = "1" },
        input = { "true", input = {} }, cwd = { "true", cwd = "/\0" }, env = { "true", env = { ["A=B"] = "" } },
        ["env.A"] = { "true", env = { A = "\0" } }, ["1.5"] = { "true", [1.5] = "" },
    } do
        local ok, problem = pcall(function() return (process.run(options)) end)
        local place, name = tostring(problem):match("process_test%.lua:(%d+): process%.run: argument '(.-)' ")
        lu.assertEquals({ ok, place ~= nil, name }, { false, true, argument })
    end
    lu.assertErrorMsgContains("must name a program", process.run, { "" })
end

function TestProcess:testZzTheFolderIsRemoved() -- the last in the order of names
    lu.assertEquals(process.run { "rm", "-r", folder }, outcome("code", 0))
end
