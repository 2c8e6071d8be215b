-- What the sample plug-in brings: a module that an application can require, and a file that it reads.

local task = require "task"

local MINUTE = 60 * 1000

local function greet()
    local path = dom:Get("app.path.bin") .. "/ext/sample/greeting.txt"
    local file = assert(io.open(path))
    local text = file:read("*l")
    file:close()
    return text
end

-- What it does beside the application, until the application cancels its tasks.
local function start()
    task.every(MINUTE, "sample greeting", function()
        dom:Log("verbose", "sample: " .. greet())
    end)
end

return { greet = greet, start = start }
