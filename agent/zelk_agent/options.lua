-- The arguments behind "--" on the command line.

local usage = [[
usage: zelk_agent [OPTIONS OF THE HOST] [-- ARGUMENTS]

Shows who and where this agent is, then what changes around it, until it is interrupted.
As a service it shows the first and leaves waiting for the stop request to the host.

  --for SECONDS   watch for so long and end; a service watches too, until it is stopped
  --use MODULE    require a module of a plug-in, and show what its function greet returns
  --help          show this text
]]

local longest = 1e9 -- seconds; some 30 years

local function parseSeconds(text)
    local seconds = tonumber(text)
    if seconds and seconds >= 0 and seconds <= longest then
        return seconds
    end
end

-- Returns a table with `help`, `seconds` and `use`, each nil unless it was given; or nil and what is
-- wrong.
local function parse(arguments)
    local options = {}
    local i = 1
    while arguments[i] do
        local name = arguments[i]
        if name == "--help" then
            options.help = true
        elseif name == "--use" then
            i = i + 1
            options.use = arguments[i]
            if not options.use then
                return nil, "--use takes the name of a module"
            end
        elseif name == "--for" then
            i = i + 1
            options.seconds = parseSeconds(arguments[i])
            if not options.seconds then
                return nil, ("--for takes a number of seconds from 0 to %d, not %s"):format(
                    longest, arguments[i] and "'" .. arguments[i] .. "'" or "nothing")
            end
        else
            return nil, ("unknown argument '%s'; see -- --help"):format(name)
        end
        i = i + 1
    end
    return options
end

return { usage = usage, parse = parse }
