-- What a task of the control socket runs: a chunk, whose results are told as text. A table is shown
-- with what is in it, two levels deep; a text in quotes only if somebody sits there.
local interactive, begun, finish, chunk = ...

local shownItems, shownLevels = 40, 2
local show

local function key(k)
    return type(k) == "string" and k:find("^[%a_][%w_]*$") and k or "[" .. show(k, 0) .. "]"
end

local function isSecret(k)
    k = type(k) == "string" and k:lower() or ""
    return k:find("password", 1, true) or k:find("secret", 1, true) or k:find("token", 1, true)
end

local function members(t, levels)
    local list, count = {}, #t
    for i = 1, math.min(count, shownItems) do
        list[i] = show(rawget(t, i), levels)
    end
    local left = math.max(count - shownItems, 0)
    for k, v in next, t do
        if type(k) == "number" and k >= 1 and k <= count and k % 1 == 0 then
            -- shown above
        elseif #list < shownItems then
            list[#list + 1] = key(k) .. " = " .. (isSecret(k) and "***" or show(v, levels))
        else
            left = left + 1
        end
    end
    return table.concat(list, ", ") .. (left > 0 and (", ... %d more"):format(left) or "")
end

function show(value, levels)
    if type(value) == "string" then
        return ("%q"):format(value):gsub("\\\n", "\\n")
    elseif type(value) ~= "table" or levels == 0 or getmetatable(value) then
        return tostring(value)
    end
    return "{" .. members(value, levels - 1) .. "}"
end

local function shown(...)
    local texts = table.pack(...)
    for i = 1, texts.n do
        local value = texts[i]
        texts[i] = type(value) == "string" and not interactive and value or show(value, shownLevels)
    end
    return table.concat(texts, "\t")
end

-- What the application does to show a value of its own may fail as well.
local function explain(problem)
    local words = type(problem) == "table" and not getmetatable(problem) and show or tostring
    local _, text = pcall(words, problem, shownLevels)
    text = debug.traceback(type(text) == "string" and text or "an error that cannot be shown", 2)
    return text:match("^(.*)\n\t%[C%]: in function 'xpcall'") or text -- without the levels of this file
end

local function tell(ok, ...)
    if ok then
        finish(xpcall(shown, explain, ...))
    else
        finish(false, (...))
    end
end

begun()
tell(xpcall(chunk, explain))
