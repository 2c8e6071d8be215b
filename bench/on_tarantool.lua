-- Runs a row with the fibers of Tarantool: tarantool on_tarantool.lua ROW [ARGUMENT...]

local clock = require "clock"
local fiber = require "fiber"

local never = fiber.cond()
local host = { now = function() return clock.monotonic() * 1000 end }

function host.start(fn)
    fiber.create(fn)
end

function host.giveWay(times)
    for _ = 1, times do
        fiber.yield()
    end
end

function host.waitForGood()
    never:wait()
end

print(require("rows." .. arg[1])(host, unpack(arg, 2)))
os.exit(0)
