-- Runs a row as a task of the agent: zelk_agent --appname on_agent -- ROW [ARGUMENT...]
-- What the rows ask of their host, this one and others: the time in milliseconds, to start a task, to
-- give way so many times, to wait for good.

local task = require "task"

local host = { now = function() return dom:Now() end }

function host.start(fn)
    task.start("bench", fn)
end

function host.giveWay(times)
    for _ = 1, times do
        dom:Wait(0)
    end
end

function host.waitForGood()
    dom:Wait(-1, "name")
end

local app = {}

function app.main()
    local row = task.start("row", function()
        print(require("rows." .. arg[1])(host, table.unpack(arg, 2)))
    end)
    local done, problem = row:join()
    for _, other in ipairs(task.list()) do
        other:cancel()
    end
    return done and 0 or error(problem, 0)
end

return app
