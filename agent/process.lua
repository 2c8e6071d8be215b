-- Programs, run by a task that waits for them while the others go on. docs/lua/process.d.lua describes
-- the module.

local core = require "process.core"

local process = {}

-- What a wait takes for one descriptor of a program.
local Source = {}
Source.__index = Source

function Source:pollfd()
    return self.program:descriptor(self.name)
end

function Source:events()
    return self.name == "input" and "w" or "r"
end

-- The end first: a wait tells the first that is ready, and nothing may hide the end.
local function newSources(program)
    local sources = {}
    for i, name in ipairs { "ended", "out", "err", "input" } do
        sources[i] = setmetatable({ program = program, name = name }, Source)
    end
    return sources
end

local function dropClosed(sources)
    for i = #sources, 1, -1 do
        if not sources[i]:pollfd() then
            table.remove(sources, i)
        end
    end
end

local function waitFor(timeout, ...)
    local ready = dom:Wait(timeout, ...)
    if ready == nil and timeout < 0 then
        error("process.run: nothing can be waited for while the application is closed", 0)
    end
    return ready
end

-- Waits for the end, and passes on what comes and goes until then. Returns whether the program had to be
-- killed, or nil and why it cannot be.
local function waitForEnd(program, timeout)
    local deadline = timeout and dom:Now() + timeout
    local sources = newSources(program)
    local ended = sources[1]
    while true do
        dropClosed(sources)
        local left = deadline and math.ceil(deadline - dom:Now()) or -1
        if deadline and left <= 0 then
            local killed, problem = program:kill()
            if killed then
                waitFor(-1, ended)
            end
            return killed, problem
        end
        if waitFor(left, table.unpack(sources)) == ended then
            return false
        end
        program:transfer()
    end
end

function process.run(options)
    local isRight, program, timeout = pcall(core.start, options)
    if not isRight then
        error(program, 2)
    elseif not program then
        return nil, timeout
    end
    local isOver, killed, problem = pcall(waitForEnd, program, timeout)
    if not isOver then
        program:abandon()
        error(killed, 0)
    end
    local result
    if killed ~= nil then
        result, problem = program:collect()
    end
    if not result then
        program:abandon()
        return nil, options[1] .. ": " .. problem
    end
    result.timed_out = killed and result.signal == 9
    return result
end

return process
