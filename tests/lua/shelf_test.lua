-- The Debian packages that stand beside the agent, each used inside of tasks.
local lu = require "luaunit"
local task = require "task"
local cjson = require "cjson"
local inotify = require "inotify"
local lfs = require "lfs"
local lpeg = require "lpeg"
local pkey = require "openssl.pkey"
local posix = require "posix"
local socket = require "socket"
local ssl = require "ssl"
local x509 = require "openssl.x509"

local LIMIT = 60000 -- milliseconds; for what comes soon
local folder = posix.mkdtemp((os.getenv("TMPDIR") or "/tmp") .. "/shelf-XXXXXX")

local function write(name, text)
    local file = assert(io.open(folder .. "/" .. name, "w"))
    file:write(text)
    file:close()
    return folder .. "/" .. name
end

-- Calls a method of a socket that does not block until it has done its work.
local function complete(s, method, ...)
    while true do
        local result, problem = s[method](s, ...)
        if result then
            return result
        end
        lu.assertStrContains("timeout wantread wantwrite", problem)
        lu.assertNotNil(dom:Wait(LIMIT, problem == "wantwrite" and task.writable(s) or task.readable(s)))
    end
end

-- A word goes from a client to a server and comes back. `prepare` makes of a side's socket what the side uses.
local function talk(prepare)
    local listener, client = assert(socket.bind("127.0.0.1", 0)), socket.tcp()
    listener:settimeout(0)
    local server = task.start("server", function()
        local s = prepare(complete(listener, "accept"), "server")
        s:send(complete(s, "receive", "*l"):upper() .. "\n")
    end)
    client:settimeout(0)
    client:connect(listener:getsockname())
    lu.assertNotNil(dom:Wait(LIMIT, task.writable(client)))
    client = prepare(client, "client")
    client:send("word\n")
    lu.assertEquals(complete(client, "receive", "*l"), "WORD")
    lu.assertTrue(server:join(LIMIT))
end

local function withoutBlocking(s)
    s:settimeout(0)
    return s
end

function TestSocketsWaitAsDescriptorsAlsoEncrypted()
    local key, certificate = pkey.new { type = "EC", curve = "prime256v1" }, x509.new()
    certificate:setPublicKey(key)
    certificate:sign(key)
    local files = { key = write("key", key:toPEM("private")), certificate = write("crt", tostring(certificate)) }
    talk(withoutBlocking)
    talk(function(s, mode)
        local options = mode == "server" and files or {}
        options.mode, options.protocol, options.verify = mode, "tlsv1_2", "none"
        s = withoutBlocking(assert(ssl.wrap(withoutBlocking(s), options)))
        complete(s, "dohandshake")
        return s
    end)
end

function TestAFolderIsWatchedAndReadInATask()
    local watch = inotify.init { blocking = false }
    watch:addwatch(folder, inotify.IN_CLOSE_WRITE)
    local watcher = task.start("watcher", function()
        local name = dom:Wait(LIMIT, task.readable(watch)) and watch:read()[1].name
        local words = lpeg.Ct((lpeg.C(lpeg.R("az") ^ 1) + 1) ^ 0):match("a, bc")
        return name, lfs.attributes(folder .. "/" .. name, "mode"), cjson.encode(words)
    end)
    dom:Wait(0)
    write("news", "")
    lu.assertEquals({ watcher:join(LIMIT) }, { true, "news", "file", '["a","bc"]' })
end

function TestZzTheFolderIsRemoved() -- the last in the order of names
    for name in lfs.dir(folder) do
        os.remove(folder .. "/" .. name)
    end
    lu.assertTrue(lfs.rmdir(folder))
end
