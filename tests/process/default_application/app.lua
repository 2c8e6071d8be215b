-- The default application, to which something has happened already when it starts to watch.
local app = require "zelk_agent"

function app.shutdown()
    print("the end")
end

dom:ConditionRaise("app.netAdaptersChanged")
dom:ConditionRaise("app.clockChange")
return app
