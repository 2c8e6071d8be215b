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
local folder

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

-- A word goes from a client to a server, and comes back. `prepare` makes of each side's socket what it uses.
local function talk(prepare)
    local listener = assert(socket.bind("127.0.0.1", 0))
    listener:settimeout(0)
    local server = task.start("server", function()
        local s = prepare(complete(listener, "accept"), "server")
        s:send(complete(s, "receive", "*l"):upper() .. "\n")
        s:close()
    end)
    local client = task.start("client", function()
        local s = socket.tcp()
        s:settimeout(0)
        s:connect(listener:getsockname())
        lu.assertNotNil(dom:Wait(LIMIT, task.writable(s)))
        s = prepare(s, "client")
        s:send("word\n")
        local answer = complete(s, "receive", "*l")
        s:close()
        return answer
    end)
    lu.assertEquals({ client:join(LIMIT) }, { true, "WORD" })
    lu.assertTrue(server:join(LIMIT))
    listener:close()
end

local function write(name, text)
    local file = assert(io.open(folder .. "/" .. name, "w"))
    file:write(text)
    file:close()
end

TestShelf = {}

function TestShelf:setUp()
    folder = posix.mkdtemp((os.getenv("TMPDIR") or "/tmp") .. "/shelf-XXXXXX")
end

function TestShelf:tearDown()
    for name in lfs.dir(folder) do
        os.remove(folder .. "/" .. name)
    end
    lu.assertTrue(lfs.rmdir(folder))
end

function TestShelf:testSocketsWaitAsDescriptors()
    talk(function(s)
        s:settimeout(0)
        return s
    end)
end

function TestShelf:testAnEncryptedConnectionUsesAFreshCertificate()
    local key, certificate = pkey.new { type = "EC", curve = "prime256v1" }, x509.new()
    certificate:setLifetime(os.time() - 3600, os.time() + 3600)
    certificate:setPublicKey(key)
    certificate:sign(key)
    write("key", key:toPEM("private"))
    write("certificate", tostring(certificate))
    talk(function(s, mode)
        s:settimeout(0)
        s = assert(ssl.wrap(s, { mode = mode, protocol = "tlsv1_2", verify = "none",
            key = mode == "server" and folder .. "/key" or nil,
            certificate = mode == "server" and folder .. "/certificate" or nil }))
        s:settimeout(0)
        complete(s, "dohandshake")
        return s
    end)
end

function TestShelf:testAFolderIsWatched()
    local watch = inotify.init { blocking = false }
    watch:addwatch(folder, inotify.IN_CLOSE_WRITE)
    local watcher = task.start("watcher", function()
        return dom:Wait(LIMIT, task.readable(watch)) and watch:read()[1].name
    end)
    dom:Wait(0)
    write("news", "")
    lu.assertEquals({ watcher:join(LIMIT) }, { true, "news" })
    watch:close()
end

function TestShelf:testWhatDoesNotWaitWorksInATaskAsWell()
    local words = lpeg.Ct((lpeg.C(lpeg.R("az") ^ 1) + 1) ^ 0)
    local user = task.start("user", function()
        local read = cjson.decode(cjson.encode { words = words:match("a, bc") })
        return read.words, lfs.attributes(folder, "mode"), posix.basename("/a/b")
    end)
    lu.assertEquals({ user:join(LIMIT) }, { true, { "a", "bc" }, "directory", "b" })
end
