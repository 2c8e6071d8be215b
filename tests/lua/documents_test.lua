-- Every example of the two guides is run, in their order and in one folder; and the editor
-- stub describes what there is.

local lu = require "luaunit"

local docs = (debug.getinfo(1, "S").source:match("^@(.*/)") or "./") .. "../../docs/"

local function execute(command, ...)
    local pipe = assert(io.popen("exec 2>&1\n" .. command:format(...)))
    local output = pipe:read("*a")
    pipe:close()
    return output
end

local folder = execute("mktemp -d"):match("%S+")

local function write(name, text)
    execute("mkdir -p '%s/%s'", folder, name:match("^(.*)/") or ".")
    local file = assert(io.open(folder .. "/" .. name, "w"))
    file:write(text)
    file:close()
end

-- What the examples call zelk_agent is this agent, with its working folder among the examples.
write("bin/zelk_agent", ("#!/bin/sh\nexec '%s' --workdir '%s/work' \"$@\" </dev/null\n"):format(
    dom:Get("app.path.exe"), folder))
execute("chmod +x '%s/bin/zelk_agent'", folder)

local function inFolder(command)
    return execute("cd '%s' && PATH=\"$PWD/bin:$PATH\" && unset NOTIFY_SOCKET\n%s", folder, command)
end

-- Adds the blocks of a guide, with their language, the line they begin at and what they are said to print.
local function readBlocks(blocks, guide)
    local block, number = nil, 0
    for line in io.lines(docs .. guide .. "_guide.md") do
        number = number + 1
        local language = line:match("^```(%a+)$")
        if language then
            block = { language = language, place = ("%s%04d"):format(guide, number), text = "", expected = "" }
        elseif line == "```" then
            blocks[#blocks + 1], block = block, nil
        elseif block then
            block.text = block.text .. line .. "\n"
            local said = line:match("%-%-> (.*)$") or line:match("^#> ?(.*)$")
            block.expected = block.expected .. (said and said .. "\n" or "")
        end
    end
    return blocks
end

-- A block that begins with a file's name is that file; any other is the body of an application.
local function runLua(block)
    local name = block.text:match("^%-%- (%S+%.lua)\n")
    if name then
        write(name, block.text)
        return ""
    end
    write("example.lua", "return { main = function()\n" .. block.text .. "end }\n")
    return inFolder("zelk_agent --appname example --lua_path './?.lua'")
end

TestDocuments = {}
local examples = ""
for _, block in ipairs(readBlocks(readBlocks({}, "lua_author"), "lua_delivery")) do
    examples = examples .. block.text
    TestDocuments["testTheExampleIn_" .. block.place] = function()
        lu.assertEquals(block.language == "lua" and runLua(block) or inFolder(block.text), block.expected)
    end
end

function TestDocuments:testTheStubDescribesTheGlobalsOfTheHostAndMembersOfWhichEachHasAnExample()
    local described, members = {}, {}
    assert(loadfile(docs .. "lua/dom.d.lua", "t", described))()
    lu.assertItemsEquals({ described.arg, described.dom, described.dom0 }, described)
    lu.assertIs(described.dom0, described.dom)
    for member in pairs(getmetatable(dom).__index) do
        members[member] = described.dom[member]
        lu.assertStrContains(examples, "dom:" .. member)
    end
    lu.assertEquals(described.dom, members)
end

function TestDocuments:testZzTheFolderIsRemoved() -- the last in the order of names
    lu.assertEquals(execute("rm -rf '%s'", folder), "")
end
