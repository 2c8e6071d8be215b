-- What the sample plug-in brings: a module that an application can require, and a file that it reads.

local function greet()
    local path = dom:Get("app.path.bin") .. "/ext/sample/greeting.txt"
    local file = assert(io.open(path))
    local text = file:read("*l")
    file:close()
    return text
end

return { greet = greet }
