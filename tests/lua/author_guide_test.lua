-- Every example of the author guide is run, in the order of the guide and in one folder.

local lu = require "luaunit"

local here = debug.getinfo(1, "S").source:match("^@(.*/)") or "./"
local guide = here .. "../../docs/lua_author_guide.md"

local function execute(command)
    local pipe = assert(io.popen(command .. " 2>&1"))
    local output = pipe:read("*a")
    pipe:close()
    return output
end

local folder = execute("mktemp -d"):match("%S+")

local function write(name, text)
    os.execute(("mkdir -p '%s/%s'"):format(folder, name:match("^(.*)/") or "."))
    local file = assert(io.open(folder .. "/" .. name, "w"))
    file:write(text)
    file:close()
end

-- What the examples call zelk_agent is this agent, with its working folder among the examples.
write("bin/zelk_agent", ("#!/bin/sh\nexec '%s' --workdir '%s/work' \"$@\" </dev/null\n"):format(
    dom:Get("app.path.exe"), folder))
os.execute(("chmod +x '%s/bin/zelk_agent'"):format(folder))

local function inFolder(command)
    return execute(("cd '%s' && PATH=\"$PWD/bin:$PATH\" && unset NOTIFY_SOCKET && { %s\n}"):format(
        folder, command))
end

-- The blocks of the guide, with their language, the line they begin at and what they are said to print.
local function readBlocks()
    local blocks, block, number = {}, nil, 0
    for line in io.lines(guide) do
        number = number + 1
        local language = line:match("^```(%a+)$")
        if language then
            block = { language = language, line = number, text = "", expected = "" }
        elseif line == "```" then
            blocks[#blocks + 1], block = block, nil
        elseif block then
            block.text = block.text .. line .. "\n"
            local said = line:match("%-%-> (.*)$") or line:match("^#> ?(.*)$")
            if said then
                block.expected = block.expected .. said .. "\n"
            end
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

local blocks = readBlocks()

TestAuthorGuide = {}

for _, block in ipairs(blocks) do
    TestAuthorGuide[("testTheExampleInLine%04d"):format(block.line)] = function()
        local output = block.language == "lua" and runLua(block) or inFolder(block.text)
        lu.assertEquals(output, block.expected)
    end
end

function TestAuthorGuide:testThereIsAnExampleOfEveryMember()
    local examples = ""
    for _, block in ipairs(blocks) do
        examples = examples .. block.text
    end
    for member in pairs(getmetatable(dom).__index) do
        lu.assertStrContains(examples, "dom:" .. member)
    end
end

function TestAuthorGuide:testZzTheFolderIsRemoved() -- the last in the order of names
    lu.assertTrue(os.execute(("rm -rf '%s'"):format(folder)))
end
