-- The default application, and a sample of what one looks like. An application is a module, named
-- like the agent's --appname, with up to three functions, which the host calls in this order:
--
--   init      get ready; a service counts as started when it has returned
--   main      do the work, or start tasks that do it: the run goes on with them until they have ended,
--             and a service until it is told to stop
--   shutdown  tidy up
--
-- Each returns 0, or nothing, to go on. Any other integer ends the run and is its exit code.
-- `dom` is the domain store, by which the host and the application know of each other.

local options = require "zelk_agent.options"
local report = require "zelk_agent.report"
local task = require "task"

local BAD_ARGUMENTS = 2

local events = {
    { condition = "app.clockChange", text = "the system clock was set" },
    { condition = "app.netAdaptersChanged", text = "the network addresses changed" },
    { condition = "app.configChanged", text = "the ini files were changed" },
}

local settings = {}

-- A service has nobody who reads its output.
local function tell(text)
    if not dom:Get("app.background") then
        print(text)
    end
    dom:Log("verbose", "zelk_agent: " .. text)
end

-- A task for each condition: none holds up the others, and no raise is lost while one is busy.
local function watch()
    for _, event in ipairs(events) do
        task.start("watch " .. event.condition, function()
            while true do
                dom:Wait(-1, event.condition)
                tell(event.text)
            end
        end)
    end
end

-- Ends everything after so many seconds (nil: without limit), or when the application is asked to stop.
local function finish(seconds)
    dom:Wait(seconds and math.ceil(seconds * 1000) or -1, "app.stop")
    report.printEvents()
    for _, other in ipairs(task.list()) do
        other:cancel()
    end
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
    watch()
    if settings.use then
        local plugin = require(settings.use)
        print(plugin.greet())
        if plugin.start then
            plugin.start()
        end
    end
    task.essential("finish", finish, settings.seconds)
    return 0
end

function app.shutdown()
    dom:Log("verbose", "zelk_agent: the default application ends")
    return 0
end

return app
