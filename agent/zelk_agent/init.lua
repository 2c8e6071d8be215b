-- The default application, and a sample of what one looks like. An application is a module, named
-- like the agent's --appname, with up to three functions, which the host calls in this order:
--
--   init      get ready; a service counts as started when it has returned
--   main      do the work; at a console the run ends when it returns, a service goes on
--   shutdown  tidy up
--
-- Each returns 0, or nothing, to go on. Any other integer ends the run and is its exit code.
-- `dom` is the domain store, by which the host and the application know of each other.

local options = require "zelk_agent.options"
local report = require "zelk_agent.report"

local BAD_ARGUMENTS = 2

-- What happens, by the condition that tells of it.
local events = {
    ["app.clockChange"] = "the system clock was set",
    ["app.netAdaptersChanged"] = "the network addresses changed",
}

local settings = {}

-- Seconds since the system started, whatever is done to the clock.
local function uptime()
    local file = assert(io.open("/proc/uptime"))
    local seconds = file:read("*n")
    file:close()
    return seconds
end

-- Tells what happens for so many seconds (nil: without limit) or until the service is to stop.
local function watch(seconds)
    local stop = dom:Get("app.windows.service.stopEvent") -- a number; nil if this is no service
    local signals = { "app.clockChange", "app.netAdaptersChanged", stop }
    local finish = seconds and uptime() + seconds
    repeat
        local left = finish and math.max(0, math.ceil((finish - uptime()) * 1000)) or -1
        -- A condition raised while this loop was busy is not lost: Wait returns it at once.
        local fired = dom:Wait(left, table.unpack(signals))
        if events[fired] then
            print(events[fired])
            dom:Log("verbose", "zelk_agent: " .. events[fired])
        end
        local stopping = fired ~= nil and fired == stop
        local over = finish ~= nil and uptime() >= finish
    until stopping or over
end

local app = {}

function app.init()
    io.stdout:setvbuf("line") -- who reads along sees each line as it is written
    if dom:Get("app.mode.unittest") then
        return 0 -- the arguments are the test driver's
    end
    local problem
    settings, problem = options.parse(arg)
    if not settings then
        io.stderr:write("zelk_agent: ", problem, "\n")
        return BAD_ARGUMENTS
    end
    return 0
end

function app.main()
    if settings.help then
        io.write(options.usage)
        return 0
    end
    report.print()
    if settings.use then
        print(require(settings.use).greet())
    end
    -- A service that watches nothing returns at once: the host waits for the stop request, and takes
    -- care of hardening meanwhile.
    if settings.seconds or not dom:Get("app.background") then
        watch(settings.seconds)
    end
    report.printEvents()
    return 0
end

function app.shutdown()
    dom:Log("verbose", "zelk_agent: the default application ends")
    return 0
end

return app
