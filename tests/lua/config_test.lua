local lu = require "luaunit"
local config = require "config"

local names = { "app.path.ini", "app.path.ini.global" }
local paths, kept = {}, {}

-- Gives the two files their texts; false for none.
local function write(...)
    for i, text in ipairs { ... } do
        os.remove(paths[i])
        if text then
            local file = assert(io.open(paths[i], "wb"))
            assert(file:write(text))
            file:close()
        end
    end
end

-- What the log holds. Each test gives its files names of their own, as they stay there.
local function logged()
    local file = assert(io.open(dom:Get("app.path.work") .. "/log/" .. dom:Get("app.log.name") .. ".log"))
    local text = file:read("*a")
    file:close()
    return text
end

TestConfig = {}

function TestConfig:setUp()
    for i, name in ipairs(names) do
        kept[i], paths[i] = dom:Get(name), os.tmpname()
        dom:Set(name, paths[i])
    end
end

function TestConfig:tearDown()
    for i, name in ipairs(names) do
        dom:Set(name, kept[i])
        os.remove(paths[i])
    end
end

local defaults = { text = "d", number = 1.5, flag = true, list = { "a", "b" }, other = "kept" }

function TestConfig:testValuesHaveTheTypesOfTheirDefaultsInEachEncoding()
    local expected = { text = "Ä b", number = -16, flag = false, list = { "x", "y z" }, other = "kept" }
    local text = "number=7\n; no\n[Probe]\nTEXT = \"Ä b\"\r\nnumber= -0x10 \nflag=OFF\nlist=, x ,y z,,\n"
    local utf16 = "\255\254" .. text:gsub("Ä", "\196"):gsub(".", "%0\0")
    for _, bytes in ipairs { text, "\239\187\191" .. text, utf16 } do
        write(bytes, false)
        lu.assertEquals(config.read("probe", defaults), expected)
    end
    lu.assertEquals(config.read("", { number = 0, absent = 1 }), { number = 7, absent = 1 })
    write("[probe]\ntext=$HOME-\nlist=", false)
    local settings = config.read("probe", defaults)
    lu.assertEquals({ settings.text, settings.list }, { os.getenv("HOME") .. "-", {} })
    write(false, false)
    settings = config.read("probe", defaults)
    lu.assertEquals(settings, defaults)
    lu.assertNotIs(settings.list, defaults.list)
end

function TestConfig:testTheOwnFileWinsUnlessTheOtherFixesTheKeyAndErrorsNameThePlace()
    write("[g]\nnumber=x\n", "[g]\nnumber=2\ntext=global\n")
    local function expect(file, line, problem, wanted)
        lu.assertErrorMsgEquals(paths[file] .. ":" .. line .. ": key " .. problem, config.read, "g", wanted)
    end
    lu.assertEquals(config.read("g", { number = "", text = "" }), { number = "x", text = "global" })
    expect(1, 2, "'Number' must be a number, but it is 'x'", { Number = 1 })
    expect(2, 3, "'text' must be one of true, false, yes, no, on, off, 1 and 0, but it is 'global'", { text = true })
    write("[g]\nnumber=1\n\n[h]\nnumber=2\n[G]\nnu\\mber=1e999\n", "[g]\n!text=fixed\n")
    expect(1, 7, "'number' must be a number, but it is '1e999'", { number = 1 })
    write("[g]\ntext=1\n", "[g]\n!text=fixed\n")
    expect(2, 2, "'text' must be a number, but it is 'fixed'", { text = 1 })
end

function TestConfig:testWhatCannotBeReadIsAnErrorThatNamesIt()
    write("\255\254a\0=\0\0\216b\0", false)
    lu.assertErrorMsgContains(paths[1] .. ": cannot be read as UTF-8 or UTF-16", config.read, "g", {})
    write("", false)
    dom:Set(names[2], "/")
    lu.assertErrorMsgContains("/: ", config.read, "g", {})
    dom:Set(names[2], paths[2])
    for argument, wrong in pairs { group = { 5, {} }, defaults = { "g", { x = print } } } do
        lu.assertErrorMsgContains("config.read: argument '" .. argument .. "' must", config.read, table.unpack(wrong))
    end
    lu.assertErrorMsgContains("a list of strings as 'l'", config.read, "g", { l = { 1 } })
end

function TestConfig:testAnUnknownKeyOfAGroupIsAWarningAndOneOfTheTopIsNot()
    write("top=1\n[g]\nknown=1\nUnknown=2\na/b=3\n", "[g]\nunknown=4\n")
    config.read("g", { known = 1 })
    config.read("", {})
    local lines = {}
    for line in logged():gmatch("[^\n]+") do
        lines[#lines + 1] = line:match("warning " .. paths[1]:gsub("%p", "%%%0") .. ":(.*)")
    end
    lu.assertEquals(lines, { "5: unknown key 'a/b' in [g]", "4: unknown key 'Unknown' in [g]" })
end

function TestConfig:testTheStubDescribesTheModule()
    local docs = (debug.getinfo(1, "S").source:match("^@(.*/)") or "./") .. "../../docs/"
    local described, members = assert(loadfile(docs .. "lua/config.d.lua", "t"))(), {}
    for name in pairs(config) do
        members[name] = described[name]
    end
    lu.assertEquals(described, members)
end
