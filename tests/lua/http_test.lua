local lu = require "luaunit"
local task = require "task"
local headers = require "http.headers"
local request = require "http.request"
local server = require "http.server"
local tls = require "http.tls"
require "task.cqueues" -- behind the modules that hold functions of cqueues

local LIMIT = 60000 -- milliseconds; for what comes soon

-- Three clients at once. Each handler waits until a task that runs beside has heard of all three.
local function fetch(scheme, version)
    local arrived, context = task.queue(), tls.new_client_context()
    context:setVerify(require("openssl.ssl.context").VERIFY_NONE)
    local function answer(_, stream)
        arrived:put(stream:get_headers():get(":path"))
        local head = headers.new()
        head:append(":status", dom:Wait(LIMIT, "http.answer") and "200" or "500")
        stream:write_headers(head, false)
        stream:write_chunk("body", true)
    end
    local web = assert(server.listen {
        host = "127.0.0.1", port = 0, tls = scheme == "https", version = version, onstream = answer })
    local serving, clients = task.start("server", function() return web:loop() end), {}
    for i = 1, 3 do
        clients[i] = task.start("client", function()
            local asked = request.new_from_uri(("%s://127.0.0.1:%d/"):format(scheme, select(3, web:localname())))
            asked.ctx = context
            local head, stream = assert(asked:go(LIMIT / 1000))
            return head:get(":status"), stream:get_body_as_string(), stream.connection.version
        end)
    end
    for _ = 1, 3 do
        lu.assertEquals(arrived:take(LIMIT), "/")
    end
    dom:ConditionRaise("http.answer")
    for _, client in ipairs(clients) do
        lu.assertEquals({ client:join(LIMIT) }, { true, "200", "body", version })
    end
    web:close()
    lu.assertTrue(serving:join(LIMIT))
end

function TestServerAndClientsTalkInTasksOfOneProcess()
    fetch("http", 1.1)
    fetch("https", 2)
end
