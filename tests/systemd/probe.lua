-- The application of the test with a real service manager. The file /etc/probe/mode says how it is
-- to behave.
local app = {}

local function exists(path)
    local file = io.open(path)
    return file ~= nil and file:close()
end

local function mode(name)
    local file = io.open("/etc/probe/mode")
    local text = file and file:read("*l")
    return file ~= nil and file:close() and text == name
end

local function loopUntilTold()
    while not exists("/etc/probe/go") do end
end

function app.init()
    if mode("slow") then
        loopUntilTold()
    end
    return mode("init fails") and 5 or 0
end

function app.main()
    if mode("unhardens") then
        while not exists("/etc/probe/go") do
            dom:Wait(20)
        end
        dom:Set("app.state.isHardened", false)
        assert(dom:EventSet(dom:Get("app.windows.service.hardenEvent")))
    elseif mode("stopped in main") then
        local stop = dom:Get("app.windows.service.stopEvent")
        assert(dom:Wait(-1, stop) == stop)
        loopUntilTold()
    end
    return mode("main fails") and 6 or 0
end

function app.shutdown()
    local file = assert(io.open("/var/lib/zelk_agent/marks", "a"))
    file:write("shutdown\n")
    file:close()
    return 0
end

return app
