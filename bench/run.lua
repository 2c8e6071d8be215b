-- Measures what things cost, beside what else there is: lua5.2 run.lua TABLE.JSON [ROW...]
-- The sides of a row take turns, so that all meet the same machine; a number is the median of the
-- rounds, whose number the variable ROUNDS holds. Ends with 1 if a row could not be measured.

package.path = os.getenv "BENCH" .. "/?.lua;" .. package.path
local rows = require "rows"
local rounds = tonumber(os.getenv "ROUNDS" or 7)

local function succeeds(command)
    return (os.execute(command .. " >/dev/null 2>&1"))
end

-- The numbers that a command prints.
local function numbersOf(command, count)
    local output = io.popen(command)
    local text = output:read "*a"
    local numbers = {}
    for word in text:gmatch "%S+" do
        numbers[#numbers + 1] = tonumber(word)
    end
    if not output:close() or #numbers ~= count then
        error(("this has failed, or does not print %d numbers: %s\n%s"):format(count, command, text), 0)
    end
    return numbers
end

local function run(command)
    if command and not os.execute(command) then
        error("this has failed: " .. command, 0)
    end
end

local function median(values)
    local sorted = { table.unpack(values) }
    table.sort(sorted)
    return (sorted[math.floor((#sorted + 1) / 2)] + sorted[math.floor(#sorted / 2) + 1]) / 2
end

-- The sides that can run.
local function sidesOf(row)
    local sides = {}
    for _, side in ipairs(row.sides) do
        if not side.needs or succeeds(side.needs) then
            sides[#sides + 1] = side
        else
            print(("%s: %s is not installed, it is left out"):format(row.name, side[1]))
        end
    end
    return sides
end

-- By side and line the numbers of all rounds.
local function measure(row, sides)
    local measured = {}
    for i in ipairs(sides) do
        measured[i] = {}
        for line in ipairs(row.lines) do
            measured[i][line] = {}
        end
    end
    run(row.prepare)
    for round = 1, rounds do
        for i, side in ipairs(sides) do
            for line, number in ipairs(numbersOf(side[2], #row.lines)) do
                measured[i][line][round] = number
            end
        end
    end
    run(row.finish)
    return measured
end

-- ---- the table ----

local function shown(number)
    return number and (number < 100 and "%.2f" or "%.0f"):format(number) or "-"
end

local function showGoal(goal)
    return (goal.atMost and "%s <= %s" or "%s >= %s"):format(goal[1], goal.atMost or goal.atLeast)
end

local function isMet(goal, value, ratio)
    local number = goal[1] == "ratio" and ratio or value
    if goal.atMost then
        return number <= goal.atMost
    end
    return number >= goal.atLeast
end

local form = "%-24s %-10s %10s  %-20s %10s %7s  %s"

local function printResult(r)
    local goal = r.goal and r.goal .. (r.met and ": met" or ": MISSED") or ""
    print(form:format(r.line, r.unit, shown(r.host), r.peer or "-", shown(r.peerValue),
        r.ratio and ("%.2f"):format(r.ratio) or "-", goal))
end

-- A line for each peer of each line of the row; the goal stands in the first.
local function evaluate(row, sides, measured, results)
    for line, lineOf in ipairs(row.lines) do
        for i = math.min(2, #sides), #sides do
            local host = median(measured[1][line])
            local result = {
                row = row.name, line = lineOf[1], unit = lineOf[2], host = host,
                hostRounds = measured[1][line],
            }
            if i > 1 then
                result.peer = sides[i][1]
                result.peerRounds = measured[i][line]
                result.peerValue = median(result.peerRounds)
                result.ratio = host / result.peerValue
            end
            if row.goal and line == 1 and i <= 2 then
                result.goal = showGoal(row.goal)
                result.met = isMet(row.goal, host, result.ratio)
            end
            printResult(result)
            results[#results + 1] = result
        end
    end
end

-- ---- JSON ----

local function json(value)
    if type(value) == "number" then
        return ("%.9g"):format(value)
    elseif type(value) ~= "table" then
        return type(value) == "string" and '"' .. value .. '"' or tostring(value)
    end
    local parts, isList = {}, #value > 0 or next(value) == nil
    for key, part in pairs(value) do
        parts[#parts + 1] = (isList and "" or '"' .. key .. '": ') .. json(part)
    end
    if not isList then
        table.sort(parts)
    end
    return (isList and "[%s]" or "{%s}"):format(table.concat(parts, ", "))
end

local function write(path, results, load)
    local lines = {}
    for i, result in ipairs(results) do
        lines[i] = json(result)
    end
    local file = assert(io.open(path, "w"))
    file:write(('{"rounds": %d, "loadAverage": %s, "lines": [\n%s\n]}\n'):format(rounds, json(load),
        table.concat(lines, ",\n")))
    file:close()
end

local function loadAverage()
    local file = assert(io.open "/proc/loadavg")
    local average = file:read "*n"
    file:close()
    return average
end

-- ---- the run ----

local function rowsNamed(names)
    local named, known = {}, {}
    for i, row in ipairs(rows) do
        named[row.name], known[i] = row, row.name
    end
    local chosen = {}
    for i, name in ipairs(#names > 0 and names or known) do
        if not named[name] then
            io.stderr:write(("there is no row '%s', but %s\n"):format(name, table.concat(known, ", ")))
            os.exit(1)
        end
        chosen[i] = named[name]
    end
    return chosen
end

io.stdout:setvbuf "line"
local chosen, results, isWhole = rowsNamed { table.unpack(arg, 2) }, {}, true
local load = { loadAverage() }
print(form:format("row", "", "this host", "peer", "", "ratio", "goal"))
for _, row in ipairs(chosen) do
    local ok, problem = pcall(function()
        local sides = sidesOf(row)
        evaluate(row, sides, measure(row, sides), results)
    end)
    if not ok then
        isWhole = false
        print(("%s: %s"):format(row.name, problem))
    end
end
load[2] = loadAverage()
print(("medians of %d rounds; load average %.1f before, %.1f after"):format(rounds, load[1], load[2]))
write(arg[1], results, load)
os.exit(isWhole)
