-- Runs a row under the library cqueues: lua5.2 on_cqueues.lua ROW [ARGUMENT...]

local cqueues = require "cqueues"
local condition = require "cqueues.condition"

local controller, never = cqueues.new(), condition.new()
local host = { now = function() return cqueues.monotime() * 1000 end }

function host.start(fn)
    controller:wrap(fn)
end

function host.giveWay(times)
    for _ = 1, times do
        cqueues.sleep(0)
    end
end

function host.waitForGood()
    never:wait()
end

local isDone = false
controller:wrap(function()
    print(require("rows." .. arg[1])(host, table.unpack(arg, 2)))
    isDone = true
end)
repeat
    assert(controller:step())
until isDone
