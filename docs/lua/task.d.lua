---@meta task
-- The module `task` of the agent, for editors that read LuaLS annotations; see dom.d.lua. What waits by
-- the library cqueues is told in task.cqueues.d.lua.

---Functions that run side by side: local task = require "task"
---
---A task gives way only where it waits: in `dom:Wait` and in what is made of it, at any depth of calls. So
---between two waits nobody else changes anything, and code that neither waits nor ends holds all others up.
---The application's own functions let the tasks run where they wait themselves.
local task = {}

---A task, as `task.start` returns it.
---@class Task
---@field name string  the name it was started with
local Task = {}

---@alias TaskStatus "ready"|"running"|"waiting"|"done"|"failed"|"cancelled"

---Something with a descriptor: its number, or an object with a method `getfd`, `fileno` or `pollfd`, such as
---a socket.
---@alias HasDescriptor integer|table|userdata

---Runs `fn(...)` as a task, from the next wait of the one who starts it on. An error that ends it goes to the
---log with its traceback, and becomes agent event 5201 with the data `task|NAME|ERROR`.
---
---It is an error to start a task in `shutdown`.
---@param name string  for people; not empty
---@param fn function
---@param ... any  its arguments
---@return Task
function task.start(name, fn, ...) end

---The same for a task without which the application is not to run: if it fails the application is asked to
---stop, and the run ends with exit code 2.
---@param name string
---@param fn function
---@param ... any
---@return Task
function task.essential(name, fn, ...) end

---Calls `fn` now and at each beat of a clock that nobody sets. Beats that pass while it runs are left out. An
---error in `fn` is told as that of a task, and the beat goes on.
---@param ms number  above 0
---@param name string
---@param fn function
---@return Task beat  to be cancelled
function task.every(ms, name, fn) end

---Waits so many milliseconds.
---@param ms integer
function task.sleep(ms) end

---@return Task|nil running  nil outside of tasks
function task.current() end

---@return Task[] living  the tasks that have not ended, in no order
function task.list() end

---Waits for the task's end. A task cannot wait for its own.
---@param ms? integer  how long at most; without limit if left out
---@return true|nil done  nil if it has failed, was cancelled, or the time is over
---@return any ...  what it has returned; or its error, "cancelled" where it was; or "timeout"
function Task:join(ms) end

---Has the task's wait, this one or its next, and each later one raise the error "cancelled".
---@return boolean living  false if it has ended
function Task:cancel() end

---@return TaskStatus
function Task:status() end

---Values handed from task to task, in their order.
---@class TaskQueue
local Queue = {}

---@param limit? integer  how many values may wait to be taken; any number if left out
---@return TaskQueue
function task.queue(limit) end

---Puts a value in; waits while the queue is full.
---@param value any  not nil
---@param ms? integer  how long it waits at most; without limit if left out
---@return true|nil done
---@return string|nil problem  "timeout" or "closed"
function Queue:put(value, ms) end

---Takes the oldest value out; waits while there is none. What was put in before the queue was closed is
---still to be had.
---@param ms? integer  how long it waits at most; without limit if left out
---@return any|nil value
---@return string|nil problem  "timeout" or "closed"
function Queue:take(ms) end

---Takes no more values. Those who wait for the queue go on.
function Queue:close() end

---For a loop over what comes until the queue is closed: for value in queue:each() do
---@return fun(): any
function Queue:each() end

---Something to wait for: dom:Wait(timeout_ms, task.readable(socket)). Fires when the descriptor can be read
---without blocking, also at the end of what it gives and after an error.
---@param x HasDescriptor
---@return table awaited
function task.readable(x) end

---The same for writing.
---@param x HasDescriptor
---@return table awaited
function task.writable(x) end

return task
