-- Every example of the guides is run, in their order and in one folder; and the editor
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

-- Modules that are not everywhere, and those found so far: an example is skipped without its modules.
local optional = { cjson = true, http = true, inotify = true, openssl = true, ["task.cqueues"] = true }
local isThere = {}

local function skipWithoutModules(text)
    write("optional.lua", "return { main = function() require(arg[1]) end }")
    for module in text:gmatch('require "([%w.]+)"') do
        if isThere[module] == nil and (optional[module] or optional[module:match("%w+")]) then
            isThere[module] = inFolder("zelk_agent --appname optional --lua_path './?.lua' -- " .. module) == ""
        end
        lu.skipIf(isThere[module] == false, module .. " is not installed")
    end
end

TestDocuments = {}
local examples = ""
local agent -- the first of all
for _, block in ipairs(readBlocks(readBlocks(readBlocks({}, "lua_author"), "lua_delivery"), "lua_tasks")) do
    agent = agent or block.text
    examples = examples .. block.text
    TestDocuments["testTheExampleIn_" .. block.place] = function()
        skipWithoutModules(block.text)
        lu.assertEquals(block.language == "lua" and runLua(block) or inFolder(block.text), block.expected)
    end
end

-- The port is the system's choice, and is read in the log.
function TestDocuments:testTheWholeAgentAnswersAndEndsWhenItIsAsked()
    skipWithoutModules(agent)
    write("probe.lua", agent)
    write("work/zelk_agent.ini", "[probe]\nport=0\n")
    local said = inFolder([[bash <<'END'
        zelk_agent --appname probe --lua_path './?.lua' & pid=$!
        port=$(tail -n +1 -F --pid=$pid work/log/probe.log 2>/dev/null | grep -m 1 -o 'port=[0-9]*')
        exec 3<>"/dev/tcp/127.0.0.1/${port#port=}"
        printf 'GET / HTTP/1.1\r\nHost: probe\r\nConnection: close\r\n\r\n' >&3
        sed -n '1p;$p' <&3
        kill -TERM $pid
        wait $pid
        echo "exit code $?"
        tail -n 3 work/log/probe.log | grep -o 'probe ends'
END]])
    lu.assertStrMatches(said, "HTTP/1.1 200 OK\r\n%d+\nprobe: asked to stop.-\nexit code 0\nprobe ends\n")
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
