-- The application of the cases. The words behind "--" say what it is: "init CODE", "main CODE" and
-- "shutdown CODE" are its steps, each of which tells its name; "events" tells what maintenance has
-- left for it; every other word is a variable to show.
local app = {}
for _, word in ipairs(arg) do
    local step, code = word:match("^(%l+)%s(.*)$")
    if step then
        app[step] = function()
            io.write(step, " ")
            return assert(load(code, "=" .. step))()
        end
    elseif word == "events" then
        for _, event in ipairs(dom:AgentEvents()) do
            print(("event %d %s %s"):format(event.code, event.severity, event.data))
        end
        print("heartbeat " .. tostring(dom:Get("zelka.HeartbeatNow")))
    else
        print(("%s=%s (%s)"):format(word, dom:Get(word), type(dom:Get(word))))
    end
end
return app
