---@meta task.cqueues
-- The module `task.cqueues` of the agent, for editors that read LuaLS annotations; see task.d.lua.

---The library cqueues itself, changed so that it waits through the agent; so does what is built on it, such as
---lua-http. One `require "task.cqueues"` anywhere in the application is enough, before or after that of the
---other modules. Both libraries are Debian packages: lua-cqueues and lua-http.
---
---While `cq:step`, `cq:loop`, `cqueues.poll`, `cqueues.sleep` or `condition:wait` wait, in a task or outside of
---tasks, the other tasks run. In a task that is cancelled they raise "cancelled". `cqueues.poll`, and so each
---socket, and conditions may be used outside of controllers: there each task waits for itself.
---
---A coroutine of a controller may use `dom:Wait` and all that stands on it, such as `process.run`, joins and
---queues, also from within coroutines of its own: the other coroutines of the controller, and all tasks, go on
---meanwhile. Each coroutine sees each raise of a condition that its creator had not seen when it was put into
---the controller, as a task does from its start. When the task that steps a controller is cancelled, its
---coroutines' `dom:Wait` raises "cancelled" first, then the task's `cq:step` or `cq:loop`. Where a coroutine
---cannot yield, such as in a callback of gsub, `dom:Wait` holds up all tasks, as everywhere.
---
---`coroutine.resume` and `coroutine.wrap` become those of cqueues.auxlib, which let a coroutine wait below
---another one; errors pass `wrap` without the place of the call in front.
local cqueues = require "cqueues"

return cqueues
