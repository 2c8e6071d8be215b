-- Microseconds for raising the condition that one of many tasks waits for, and joining that task.

local task = require "task"

local rounds, perRound = 300, 10

return function(host, count)
    local names, tasks = {}, {}
    local function start(i)
        tasks[i] = task.start("sleeper", function() dom:Wait(-1, names[i]) end)
    end
    for i = 1, count do
        names[i] = "wake." .. i
        start(i)
    end
    host.giveWay(2) -- now they wait
    local spent = 0
    for _ = 1, rounds do
        local began = host.now()
        for i = 1, count, count / perRound do
            dom:ConditionRaise(names[i])
            assert(tasks[i]:join())
        end
        spent = spent + host.now() - began
        for i = 1, count, count / perRound do
            start(i)
        end
        host.giveWay(2)
    end
    return spent * 1000 / (rounds * perRound)
end
