---@meta
-- What the agent gives to a Lua application, for editors that read LuaLS annotations: put the folder
-- of this file into `workspace.library`. It only describes; it is never run by an application.
--
-- Every member raises an error that names the member and the argument if an argument is wrong.

---What a domain variable holds. Integers have 64 bits, of which a Lua number keeps 53 exactly; see
---`GetString`.
---@alias DomValue string|integer|boolean

---@alias AgentSeverity "fatal"|"error"|"warning"|"notice"|"info"|"debug"

---An agent event as it was stored. `severity` is the log level of the name it was written with,
---`jtime` and `time` are milliseconds and seconds since 1970-01-01 UTC.
---@alias AgentEvent { id: integer, code: integer, severity: integer, jtime: integer, time: integer, data: string }

---The domain store: the one object through which the host and the Lua application share state. It
---holds named variables, carries named conditions, keeps settings and agent events and knows where
---plug-ins keep their files. Every member may be called from any coroutine, and each is one step: no other thread sees half of it.
---@class SLB.Dom
dom = {}

---Reads a domain variable.
---@param name string
---@return DomValue|nil value  nil if the variable is absent
function dom:Get(name) end

---Reads the text form of a domain variable: a string as it is, an integer in decimal with all of its
---64 bits, a boolean as "true" or "false".
---@param name string
---@return string|nil text  nil if the variable is absent
function dom:GetString(name) end

---Writes a domain variable, whatever it held before. A number has to be integral and of at most
---64 bits; nil makes the variable absent.
---@param name string  not empty
---@param value DomValue|nil
function dom:Set(name, value) end

---Makes a domain variable absent. Nothing happens if it is absent already.
---@param name string
function dom:SetNil(name) end

---Lists the domain variables that have a value.
---@param prefix? string  only names that begin with it
---@return string[] names  sorted by their bytes
function dom:Names(prefix) end

---Raises a condition: wakes every thread of the process that waits for it, and counts once for every
---Lua application that waits for it later.
---@param name string  not empty
---@return integer woken  how many were waiting
function dom:ConditionRaise(name) end

---Waits until a condition is raised, an event is signalled, or a descriptor is ready. In a task it suspends
---that task alone, at any depth; elsewhere the tasks run meanwhile. A condition that was raised since the
---caller last saw it counts at once, for a task since its start: no raise is lost between two waits, and
---several raises in between count as one. `app.stop` counts for good. If several have happened, the first
---in the list is returned and the others keep their signal.
---
---A task that is cancelled gets the error "cancelled" here. Another object is one with the methods
---`pollfd` (a descriptor), `events` ("r", "w" or a number as for poll) and `timeout` (seconds until it
---is ready anyway), or some of them.
---@param timeout_ms integer  how long at most, in milliseconds; -1 waits without limit
---@param ... string|integer|table|userdata  names of conditions, handles of events as the variables
---`app.windows.service.stopEvent` and `app.windows.service.hardenEvent` hold them, and objects
---@return string|integer|table|userdata|nil fired  the argument that ended the wait; nil if the time is over
function dom:Wait(timeout_ms, ...) end

---Tells whether the application was asked to stop: a service by its manager, a console run by SIGINT or
---SIGTERM, either by a task that is essential and has failed. `app.stop` was raised then.
---@return boolean requested
function dom:StopRequested() end

---Signals an event, for instance the one in `app.windows.service.hardenEvent`.
---@param handle integer
---@return boolean done  false if the handle is not that of an open event
function dom:EventSet(handle) end

---Tells the full path of a file in the working folder of a plug-in. Neither the file nor the folder
---needs to exist, and none is made.
---@param plugin string  a plain name without a folder
---@param file string  a plain name without a folder
---@return string path
function dom:GetPluginFile(plugin, file) end

---Tells the full path of the working folder of a plug-in, without a separator at its end. The folder
---needs not exist and is not made.
---@param plugin string  a plain name without a folder
---@return string path
function dom:GetPluginWorkdir(plugin) end

---Stores a setting, in place of an older one. It outlives the process.
---@param name string  not empty
---@param value string  any bytes
---@return boolean done  false if it could not be written; the log says why
function dom:SettingStore(name, value) end

---Reads a setting.
---@param name string  not empty
---@return string|nil value  nil if there is none, or if it cannot be read, which the log tells
function dom:SettingRetrieve(name) end

---Removes a setting.
---@param name string  not empty
---@return boolean done  true also if there was none; false if it could not be removed
function dom:SettingRemove(name) end

---Writes an agent event with the time of the call. It is on the disk when the call returns; in a
---service it goes to the system's journal as well.
---`severity` is a name or a log level: 1 error, 2 warning, 5 info.
---@param event { code: integer, severity: AgentSeverity|integer, data?: string }
---@return boolean done  false if it could not be written; the log says why
function dom:AgentEventWrite(event) end

---Reads agent events in the order of their ids.
---@param after_id? integer  only events with a greater id; 0 if left out
---@param limit? integer  at most so many; all if left out or negative
---@return AgentEvent[]|nil events  nil if they cannot be read; the log says why
function dom:AgentEvents(after_id, limit) end

---Tells the time of a clock that nobody sets, to measure spans with.
---@return number milliseconds  with their fraction, since some moment; time asleep does not count
function dom:Now() end

---Tells the time of day.
---@return number milliseconds  with their fraction, since 1970-01-01 UTC
function dom:Time() end

---Writes a line to the agent's log, with `fields` as ` key=value` behind the text, sorted by their names.
---In a service all but "verbose" goes to the system's journal, too, with the fields as journal fields
---whose names are in upper case. A field named like a password, a secret or a token is masked. A name is a letter and up to 63 letters, digits and underscores.
---@param level "error"|"warning"|"info"|"verbose"
---@param text string
---@param fields? table<string, DomValue>
function dom:Log(level, text, fields) end

---Writes a line to the trace if the module is enabled, with the calling Lua file and line as its
---position. Modules are enabled with the variables `app.trace` and `app.trace+`.
---@param module string
---@param text string
function dom:LogTrace(module, text) end

---Tells whether the trace is on for a module. Worth asking before a costly text is put together.
---@param module string
---@return boolean enabled
function dom:LogTraceIsEnabled(module) end

---The same object as `dom`, under a name that applications leave alone.
---@type SLB.Dom
dom0 = dom

---The command line. `arg[0]` is the application's name, what stands behind "--" begins at 1, and what
---stands in front of it has negative indices. Without "--" all arguments have negative indices.
---@type table<integer, string>
arg = {}
