local fault = require "fault"
local app = {}
app[arg[1]] = function()
    print(arg[1])
    fault()
end
return app
