-- What the agent knows of itself, as lines of text.

-- Values of such names stay out of sight.
local secrets = { "password", "secret", "token" }

local function isSecret(name)
    for _, word in ipairs(secrets) do
        if name:lower():find(word, 1, true) then
            return true
        end
    end
    return false
end

-- GetString tells every integer exactly. A value stays on its line: control characters are shown as
-- decimal escapes.
local function show(name)
    if isSecret(name) then
        return "***"
    end
    local value = dom:GetString(name) or "" -- another thread may have cleared it by now
    return (value:gsub("%c", function(c) return ("\\%d"):format(c:byte()) end))
end

local function section(title, names)
    print(title)
    for _, name in ipairs(names) do
        print(("  %-28s %s"):format(name, show(name)))
    end
end

local function printReport()
    local started = os.date("%Y-%m-%d %H:%M:%S", math.floor(dom:Get("app.startTime") / 1000))
    print(("%s %s, started %s"):format(dom:Get("app.log.name"), dom:Get("app.version"), started))
    section("Paths", dom:Names("app.path."))
    local others = {}
    for _, name in ipairs(dom:Names()) do
        if name:sub(1, #"app.path.") ~= "app.path." then
            others[#others + 1] = name
        end
    end
    section("Variables", others)
end

-- The agent events of this run, such as those of packages that were installed at its start.
local function printEvents()
    local events = dom:AgentEvents(0)
    if not events then
        io.stderr:write("zelk_agent: the agent events cannot be read; the log says why\n")
        return
    end
    local title = "Events\n"
    for _, event in ipairs(events) do
        if event.jtime >= dom:Get("app.startTime") then
            io.write(title)
            title = ""
            local time = os.date("%Y-%m-%d %H:%M:%S", event.time)
            print(("  %s  %d %d %s"):format(time, event.code, event.severity, event.data))
        end
    end
end

return { print = printReport, printEvents = printEvents }
