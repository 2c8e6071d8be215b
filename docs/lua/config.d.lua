---@meta config
-- The module `config` of the agent, for editors that read LuaLS annotations: see dom.d.lua.

---The values of the instance's two ini files, which the variables `app.path.ini` and
---`app.path.ini.global` name: local config = require "config"
local config = {}

---What a key is by default, which also says of which type its value has to be. A list stands in the
---file as its elements, separated by commas; blanks around one do not count, and empty ones are left out.
---A boolean is one of true, false, yes, no, on, off, 1 and 0.
---@alias ConfigDefault string|number|boolean|string[]

---Reads a group of the ini files, anew at each call: a key of the first file wins, and a file that is not
---there is an empty one. Names do not regard case. $NAME and ${NAME} are replaced by environment variables.
---
---A value of the wrong type is an error, "FILE:LINE: key 'interval' must be a number, but it is 'abc'", and
---so is a file that cannot be read or decoded: "FILE: why". A key that has no default is a warning in the
---log, with file and line.
---@generic T: table<string, ConfigDefault>
---@param group string  "" for the top of the files, where the agent's own keys stand and none is unknown
---@param defaults T
---@return T settings  a new table with a value for each name in `defaults`
function config.read(group, defaults) end

return config
