local lu = require "luaunit"
local task = require "task"
local headers = require "http.headers"
local request = require "http.request"
local server = require "http.server"
local tls = require "http.tls"
require "task.cqueues" -- behind the modules that hold functions of cqueues

local LIMIT = 60000 -- milliseconds; for what comes soon

-- Fetches three answers at once. Each handler waits until a task that runs beside has seen all three.
local function fetch(scheme, version)
    local arrived, sslContext = task.queue(), tls.new_client_context()
    sslContext:setVerify(require("openssl.ssl.context").VERIFY_NONE)
    local host = assert(server.listen {
        host = "127.0.0.1", port = 0, tls = scheme == "https", version = version,
        onstream = function(_, stream)
            local path = stream:get_headers():get(":path")
            arrived:put(path)
            local answer = headers.new()
            answer:append(":status", dom:Wait(LIMIT, "http.answer") and "200" or "500")
            stream:write_headers(answer, false)
            stream:write_chunk("this is " .. path, true)
        end,
    })
    assert(host:listen())
    local serving = task.start("server", function() return host:loop() end)
    task.start("beside", function()
        for _ = 1, 3 do
            arrived:take(LIMIT)
        end
        dom:ConditionRaise("http.answer")
    end)
    local clients = {}
    for i = 1, 3 do
        clients[i] = task.start("client", function()
            local asked = request.new_from_uri(("%s://127.0.0.1:%d/%d"):format(scheme, select(3, host:localname()), i))
            asked.ctx = sslContext
            local answer, stream = assert(asked:go(LIMIT / 1000))
            return answer:get(":status"), stream:get_body_as_string(), stream.connection.version
        end)
    end
    for i, client in ipairs(clients) do
        lu.assertEquals({ client:join(LIMIT) }, { true, "200", "this is /" .. i, version })
    end
    host:close()
    lu.assertTrue(serving:join(LIMIT))
    lu.assertEquals(task.list(), { task.current() })
end

TestHttp = {}

function TestHttp:testServerAndClientsTalkInTasksOfOneProcess()
    fetch("http", 1.1)
end

function TestHttp:testSoTheyDoEncryptedAndWithTheSecondVersion()
    fetch("https", 2)
end
