---@meta process
-- The module `process`, for editors that read LuaLS annotations; see dom.d.lua.

---Programs, run without holding up the other tasks.
---@class process
local process = {}

---What is run, and how. At least the program has to be named; no other field is known. No string but
---`input` may contain a null byte. A program with a slash is a path, from `cwd` on; without one it is
---looked for in the variable PATH: in that of `env` if it has one, else in the agent's.
---@class ProcessOptions
---@field [integer] string  the program and its arguments, from 1 on
---@field timeout? integer  milliseconds until it is killed with its process group; no limit if left out
---@field input? string  what the program reads from its standard input, which then ends; empty if left out
---@field limit? integer  how many bytes are kept of each of `out` and `err`; 1 MiB if left out
---@field env? table<string, string>  the whole environment; the agent's if left out
---@field cwd? string  the folder in which the program starts; the agent's if left out

---What came of a program. Either `code` or `signal` is there.
---@class ProcessResult
---@field code? integer  its exit status
---@field signal? integer  the number of the signal that ended it
---@field out string  the bytes of its standard output
---@field err string  the bytes of its standard error
---@field truncated boolean  more was written than `limit` keeps; the rest was dropped
---@field timed_out boolean  it was killed because of `timeout`; `signal` is 9 then

---Runs a program and waits for its end; only the calling task waits, in `dom:Wait`. The program leads a
---process group of its own and begins without blocked signals and without descriptors of the agent
---but its standard ones. It is over when the program itself has ended: processes that it leaves behind
---are neither waited for nor killed. If the wait raises an error, as it does in a task that is
---cancelled, the whole group is killed and the error goes on. The group is killed as well when a task
---that waits is dropped and collected as garbage.
---
---A wrong option raises an error that names it.
---@param options ProcessOptions
---@return ProcessResult|nil result  nil if the program cannot be started or, after its time, not be killed
---@return string|nil problem  "PROGRAM: why" then
function process.run(options) end

return process
