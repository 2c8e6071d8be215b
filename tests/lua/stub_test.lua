local lu = require "luaunit"

local here = debug.getinfo(1, "S").source:match("^@(.*/)") or "./"

-- What the editor stub describes; it sees no global of this program.
local function loadStub()
    local described = {}
    assert(loadfile(here .. "../../docs/lua/dom.d.lua", "t", described))()
    return described
end

local function sortedKeys(values)
    local keys = {}
    for key in pairs(values) do
        keys[#keys + 1] = key
    end
    table.sort(keys)
    return keys
end

TestEditorStub = {}

function TestEditorStub:testItDescribesTheMembersOfTheStoreAndNoOthers()
    lu.assertEquals(sortedKeys(loadStub().dom), sortedKeys(getmetatable(dom).__index))
end

function TestEditorStub:testItDescribesTheGlobalsOfTheHost()
    local described = loadStub()
    lu.assertEquals(sortedKeys(described), { "arg", "dom", "dom0" })
    lu.assertIs(described.dom0, described.dom)
    for name in pairs(described) do
        lu.assertNotNil(_G[name])
    end
end
