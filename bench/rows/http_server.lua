-- A server of lua-http that answers with a line of text; its port is printed. In a task of the agent it
-- waits as the others do, "alone" and elsewhere it has cqueues for itself.

local headers = require "http.headers"
local httpServer = require "http.server"

local function answer(_, stream)
    stream:get_headers()
    local head = headers.new()
    head:append(":status", "200")
    head:append("content-type", "text/plain")
    stream:write_headers(head, false)
    stream:write_chunk("hello\n", true)
end

return function(host, alone)
    if host and not alone then
        require "task.cqueues"
    end
    local server = assert(httpServer.listen {
        host = "127.0.0.1", port = 0, onstream = answer,
        onerror = function() end, -- the client leaves in the middle; it counts what was not answered
    })
    assert(server:listen())
    print((select(3, server:localname())))
    io.stdout:flush()
    assert(server:loop())
end
