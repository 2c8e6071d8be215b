-- Nanoseconds for one switch between two tasks, or between a coroutine and who resumes it.

local times = 100000

local function betweenTasks(host)
    host.start(function() host.giveWay(times) end)
    host.giveWay(times)
    return 2 * times
end

local function withCoroutine()
    local resume = coroutine.wrap(function()
        while true do
            coroutine.yield()
        end
    end)
    for _ = 1, times do
        resume()
    end
    return times
end

return function(host, kind)
    local began = host.now()
    local switches = (kind == "coroutine" and withCoroutine or betweenTasks)(host)
    return (host.now() - began) * 1e6 / switches
end
