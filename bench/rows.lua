-- The rows of the table, in its order. A row has
--   lines    what one run of a side prints, a number each: { name, unit }
--   sides    this host and its peers, { name, command, needs = command }; a peer whose `needs` fails is
--            left out. The goal concerns the first line, between the first two sides.
--   goal     { "ratio" or "value", atMost = or atLeast = }
--   prepare, finish   commands that run before the first side and after the last
-- The commands are the shell's; AGENT, BENCH (this folder) and SCRATCH are known to them.

local agent = [["$AGENT" --appname on_agent --lua_path "$BENCH/?.lua" --workdir "$SCRATCH/work" -- ]]
local lua = [[LUA_PATH="$BENCH/?.lua;;" lua5.2 ]]

local client = [[cc -O2 -o "$SCRATCH/control" "$BENCH/rows/control.c"]]

local function onAgent(name, row)
    return { name, agent .. row }
end

local function onCqueues(row)
    return { "cqueues", lua .. '"$BENCH/on_cqueues.lua" ' .. row, needs = "lua5.2 -l cqueues -e ''" }
end

local function onTarantool(row)
    return {
        "tarantool",
        [[LUA_PATH="$BENCH/?.lua;;" tarantool "$BENCH/on_tarantool.lua" ]] .. row,
        needs = "command -v tarantool",
    }
end

return {
    {
        name = "install",
        lines = {
            { "install 5,000 files", "ms" }, { "  its memory", "KB" },
            { "install 300 MB", "ms" }, { "  its memory", "KB" },
        },
        prepare = [["$BENCH/rows/install" prepare]],
        sides = {
            { "agent", [["$BENCH/rows/install" agent]] },
            { "unzip -o", [["$BENCH/rows/install" unzip]] },
        },
        finish = [["$BENCH/rows/install" finish]],
    },
    {
        name = "switch",
        lines = { { "switch", "ns" } },
        goal = { "ratio", atMost = 1.5 },
        sides = {
            onAgent("agent", "switch"),
            onAgent("coroutine", "switch coroutine"),
            { "coroutine in lua5.2", lua .. '"$BENCH/on_cqueues.lua" switch coroutine' },
            onTarantool "switch",
            onCqueues "switch",
        },
    },
    {
        name = "memory",
        lines = { { "memory of a task", "bytes" } },
        goal = { "value", atMost = 2000 },
        sides = { onAgent("agent", "memory"), onCqueues "memory", onTarantool "memory" },
    },
    {
        name = "wake",
        lines = { { "wake 1 of 10,000 tasks", "us" } },
        goal = { "ratio", atMost = 2 },
        sides = { onAgent("agent", "wake 10000"), onAgent("1 of 10", "wake 10") },
    },
    {
        name = "process",
        lines = { { "process.run", "us" } },
        goal = { "ratio", atMost = 1.3 },
        prepare = [[cc -O2 -o "$SCRATCH/spawn" "$BENCH/rows/spawn.c"]],
        sides = { onAgent("agent", "process"), { "posix_spawn", [["$SCRATCH/spawn"]] } },
    },
    {
        name = "http",
        lines = { { "http", "requests/s" } },
        goal = { "ratio", atLeast = 0.9 },
        sides = {
            { "agent", [["$BENCH/rows/http" ]] .. agent .. "http_server" },
            { "cqueues alone", [["$BENCH/rows/http" ]] .. agent .. "http_server alone" },
            { "cqueues in lua5.2", [[LUA_PATH="$BENCH/?.lua;;" "$BENCH/rows/http" lua5.2 -e 'require "rows.http_server" ()']] },
        },
    },
    {
        name = "control",
        lines = { { "status of a waiting agent", "us" } },
        goal = { "value", atMost = 1000 },
        prepare = client,
        sides = { { "agent", [["$BENCH/rows/control" waits]] } },
    },
    {
        name = "control_busy",
        lines = { { "status of a busy agent", "us" } },
        goal = { "value", atMost = 50000 },
        prepare = client,
        sides = { { "agent", [["$BENCH/rows/control" runs]] } },
    },
}
