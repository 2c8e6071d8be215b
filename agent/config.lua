-- The values of the instance's two ini files, for applications.
--
--   local config = require "config"
--   local settings = config.read("probe", { interval = 60, verbose = false, targets = {} })

local core = require "config.core"

local config = {}

local BOOLEANS = {
    ["true"] = true, yes = true, on = true, ["1"] = true,
    ["false"] = false, no = false, off = false, ["0"] = false,
}

local function trim(text)
    return text:match("^%s*(.-)%s*$")
end

local function toNumber(text)
    local number = tonumber(text)
    return number and math.abs(number) ~= math.huge and number or nil
end

local function toBoolean(text)
    return BOOLEANS[trim(text):lower()]
end

local function toList(text)
    local list = {}
    for item in text:gmatch("[^,]+") do
        item = trim(item)
        if item ~= "" then
            list[#list + 1] = item
        end
    end
    return list
end

-- By the type of a default: what a value has to be, and how it is made of text; nil if it is none.
local KINDS = {
    string = { name = "a string", convert = function(text) return text end },
    number = { name = "a number", convert = toNumber },
    boolean = { name = "one of true, false, yes, no, on, off, 1 and 0", convert = toBoolean },
    table = { name = "a list", convert = toList },
}

-- Blames the caller of config.read, from a function that config.read calls.
local function refuse(argument, problem, ...)
    error(("config.read: argument '%s' " .. problem):format(argument, ...), 4)
end

-- A default as a value of its own.
local function copyDefault(name, default)
    if type(default) ~= "table" then
        return default
    end
    local copy = {}
    for index, item in pairs(default) do
        if type(index) ~= "number" or type(item) ~= "string" then
            refuse("defaults", "must have a list of strings as '%s'", name)
        end
        copy[index] = item
    end
    return copy
end

local function checkArguments(group, defaults)
    if type(group) ~= "string" then
        refuse("group", "must be a string, but it is a %s", type(group))
    elseif type(defaults) ~= "table" then
        refuse("defaults", "must be a table, but it is a %s", type(defaults))
    end
    for name, default in pairs(defaults) do
        if type(name) ~= "string" then
            refuse("defaults", "must have strings as names, but one is a %s", type(name))
        elseif not KINDS[type(default)] then
            refuse("defaults", "must hold strings, numbers, booleans and lists of strings, but '%s' is a %s",
                name, type(default))
        end
    end
end

-- In front of a message. There is no line if the file has just been changed.
local function place(entry)
    return entry.file .. (entry.line > 0 and ":" .. entry.line or "") .. ": "
end

-- The entries of the group by their names in lower case.
local function entriesByName(group)
    local own, global = dom0:GetString("app.path.ini") or "", dom0:GetString("app.path.ini.global") or ""
    local entries = {}
    for _, entry in ipairs(core.entries(own, global, group)) do
        entries[entry.name:lower()] = entry
    end
    return entries
end

local function convert(name, default, entry)
    local kind = KINDS[type(default)]
    local value = kind.convert(entry.value)
    if value == nil then
        error(("%skey '%s' must be %s, but it is '%s'"):format(place(entry), name, kind.name, entry.value), 0)
    end
    return value
end

local function warnOfUnknown(group, entries, known)
    local names = {}
    for name in pairs(entries) do
        if not known[name] then
            names[#names + 1] = name
        end
    end
    table.sort(names)
    for _, name in ipairs(names) do
        local entry = entries[name]
        dom0:Log("warning", ("%sunknown key '%s' in [%s]"):format(place(entry), entry.name, group))
    end
end

-- Reads a group of the ini files anew. Returns a new table with a value for each name in `defaults`:
-- that of the files, which has to be of the default's type, or the default. "" is the top of the files.
function config.read(group, defaults)
    checkArguments(group, defaults)
    local entries = entriesByName(group)
    local settings, known = {}, {}
    for name, default in pairs(defaults) do
        local entry = entries[name:lower()]
        known[name:lower()] = true
        settings[name] = copyDefault(name, default)
        if entry and entry.value then
            settings[name] = convert(name, default, entry)
        end
    end
    if group ~= "" then -- at the top stand keys of the host
        warnOfUnknown(group, entries, known)
    end
    return settings
end

return config
