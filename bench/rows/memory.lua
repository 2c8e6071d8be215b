-- Bytes of resident memory for each of many waiting tasks.

local count = 10000

local function resident()
    collectgarbage()
    collectgarbage()
    for line in io.lines "/proc/self/status" do
        local kilobytes = line:match "^VmRSS:%s*(%d+)"
        if kilobytes then
            return tonumber(kilobytes) * 1024
        end
    end
end

return function(host)
    local before = resident()
    for _ = 1, count do
        host.start(host.waitForGood)
    end
    host.giveWay(2) -- now they wait
    return (resident() - before) / count
end
