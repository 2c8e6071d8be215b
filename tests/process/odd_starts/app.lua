-- Does what the first argument says, in init.
local function nested(depth)
    return depth == 0 and "" or ("x"):gsub("x", function() return nested(depth - 1) end)
end
local deeds = {
    print = function() for _ = 1, 2000 do print("not for the log") end end,
    exit = function() dom:Log("error", "the last words") os.exit(5) end,
    hook = function()
        local host = debug.gethook()
        debug.sethook(print, "c")
        debug.sethook()
        print(host ~= nil and debug.gethook() == host)
    end,
    nest = function() print(pcall(nested, 1000)) end,
    descriptors = function()
        local files = {}
        while not files[1] or files[#files] do files[#files + 1] = io.open("/dev/null") or false end
        print(pcall(dom.Wait, dom, 0, "x"))
        for _, file in ipairs(files) do if file then file:close() end end
        print(dom:Wait(0, "x"))
    end,
    finaliser = function()
        kept = setmetatable({}, { __gc = function() dom:Log("error", "closed") dom:Wait(-1) end })
    end,
}
return { init = deeds[arg[1]] }
