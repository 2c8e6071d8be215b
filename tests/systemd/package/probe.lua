-- The application of the test with a real service manager. The file /etc/probe/mode says how it is
-- to behave.
local mode = io.lines("/etc/probe/mode")()
local app = {}

local function loopUntilTold()
    while not io.open("/etc/probe/go") do end
end

function app.init()
    if mode == "slow" then
        loopUntilTold()
    end
    return mode == "init fails" and 5 or 0
end

function app.main()
    if mode == "unhardens" then
        while not io.open("/etc/probe/go") do
            dom:Wait(20)
        end
        dom:Set("app.state.isHardened", false)
        assert(dom:EventSet(dom:Get("app.windows.service.hardenEvent")))
    end
    return mode == "main fails" and 6 or 0
end

function app.shutdown()
    assert(io.open("/var/lib/zelk_agent/marks", "a")):write("shutdown\n")
    return 0
end

return app
