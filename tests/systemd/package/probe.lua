-- The application of the test with a real service manager. The file /etc/probe/mode says how it is
-- to behave.
local mode = io.lines("/etc/probe/mode")()
local app = {}

function app.init()
    return mode == "init fails" and 5 or 0
end

local function spin()
    repeat local s = ("x"):rep(99) until s == ""
end

function app.main()
    if mode == "hangs" then
        spin()
    end
    if mode == "unhardens" then
        while not io.open("/etc/probe/go") do
            dom:Wait(20)
        end
        dom:Set("app.state.isHardened", false)
        assert(dom:EventSet(dom:Get("app.windows.service.hardenEvent")))
    end
end

function app.shutdown()
    assert(io.open("/var/lib/zelk_agent/marks", "a")):write(dom:Get("app.windows.service.name"), " shuts down\n")
    return 0
end

return app
