-- The test driver: zelk_agent --unittest PATTERN [-- OPTIONS OF LUAUNIT]
--
-- Runs the test files that the pattern names, in the order of their names, then every class `Test...`
-- and function `test...` that they have defined as globals. PATTERN is a path in which "*" stands for
-- any bytes and "?" for one byte of a name. The module is called with the pattern and returns the number
-- of failures and errors: the run's exit code. A test file that cannot be loaded, or a run without a
-- single test, counts as one of them.
--
-- Each test is a task, and so are its setUp and tearDown: what they wait for holds up nothing else. When
-- the test is over, the tasks that it has started are cancelled and joined.

local luaunit = require "luaunit"
local testTasks = require "zelkaunit.tests"

local MOST = 255 -- an exit code has eight bits: 256 failures must not look like none

local function complain(text)
    io.stdout:flush()
    io.stderr:write("zelkaunit: ", text, "\n")
end

-- LuaUnit ends the process for some options, and so do many test files that were written to run by
-- themselves. Here neither may: os.exit raises this value.
local left = setmetatable({}, { __tostring = function() return "os.exit was called" end })

-- xpcall, with os.exit out of force. To a test that calls os.exit, LuaUnit itself raises an error.
local function protectedCall(f, handler, ...)
    local exit = luaunit.oldOsExit -- what LuaUnit's own os.exit calls while no test runs
    luaunit.oldOsExit = function(code)
        left.code = code
        error(left)
    end
    local results = table.pack(xpcall(f, function(problem)
        return problem == left and left or handler(tostring(problem))
    end, ...))
    luaunit.oldOsExit = exit
    return table.unpack(results, 1, results.n)
end

-- The pattern for the shell: everything but the wildcards is quoted.
local function quote(pattern)
    return "'" .. pattern:gsub("'", [['\'']]):gsub("[*?]+", "'%0'") .. "'"
end

-- The files that a pattern stands for, sorted. The shell does the expanding: it is there on every
-- system and takes any name, as the names come back with a null behind each.
local function findFiles(pattern)
    local pipe = assert(io.popen("for f in " .. quote(pattern) ..
        [[; do if [ -f "$f" ]; then printf '%s\0' "$f"; fi; done]]))
    local names = pipe:read("*a")
    assert(pipe:close(), "the shell failed to list the test files")
    local files = {}
    for name in names:gmatch("[^\0]+") do
        files[#files + 1] = name
    end
    table.sort(files)
    return files
end

-- The globals that LuaUnit takes for tests, by name.
local function findTests()
    local tests = {}
    for name, value in pairs(_G) do
        local isTest = type(value) == "table" or type(value) == "function"
        if isTest and type(name) == "string" and luaunit.LuaUnit.isTestName(name) then
            tests[name] = value
        end
    end
    return tests
end

local function loadTestFile(file)
    local chunk, problem = loadfile(file, "t")
    if not chunk then
        return false, problem
    end
    local ok
    ok, problem = protectedCall(chunk, debug.traceback, file)
    if problem == left then
        problem = file .. ": calls os.exit; under this driver a test file only defines its tests"
    end
    return ok, problem
end

-- Runs the files. Returns the names of the tests that they have defined, sorted, and the number of
-- problems, each of which it has told.
local function loadTestFiles(files)
    local names, problems, definedIn = {}, 0, {}
    local known = findTests() -- what the application has under such names is no test
    for _, file in ipairs(files) do
        local ok, problem = loadTestFile(file)
        if not ok then
            problems = problems + 1
            complain(problem)
        end
        local tests = findTests()
        for name, value in pairs(tests) do
            if value ~= known[name] and definedIn[name] then
                problems = problems + 1
                complain(("%s: '%s' replaces that of %s, which does not run"):format(
                    file, name, definedIn[name]))
            elseif value ~= known[name] then
                names[#names + 1] = name
                definedIn[name] = file
            end
        end
        known = tests
    end
    table.sort(names)
    return names, problems
end

-- Seconds. os.clock, by which LuaUnit measures, tells the processor's time: of a test that waits it would
-- say that it took none.
local function wallClock()
    return testTasks.now() / 1000
end

-- Gives those of LuaUnit's functions that measure another clock, and no one else.
local function measureWallTime()
    local env = setmetatable({ os = setmetatable({ clock = wallClock }, { __index = os }) }, { __index = _G })
    for _, name in ipairs { "startSuite", "startTest", "endTest", "endSuite" } do
        local method = luaunit.LuaUnit[name]
        for index = 1, debug.getinfo(method, "u").nups do
            if debug.getupvalue(method, index) == "_ENV" then
                debug.upvaluejoin(method, index, function() return env end, 1)
            end
        end
    end
end

-- Of a suite that has been run, with what its protected call has returned.
local function countFailures(runner, ok, problem)
    local result = runner.result
    if ok or (problem == left and result) then -- LuaUnit leaves early with -e and -f
        if result.runCount > 0 then
            return result.notSuccessCount
        end
        problem = "no test ran"
    end
    if problem ~= left then -- then LuaUnit has told what is wrong
        complain(problem)
    end
    return 1
end

-- Runs the tests under LuaUnit. Returns the number of failures and errors.
local function runTests(names, options)
    local arguments = { table.unpack(arg) }
    if not options.testNames then
        for _, name in ipairs(names) do
            arguments[#arguments + 1] = name
        end
    end
    measureWallTime()
    local runner = luaunit.LuaUnit.new()
    testTasks.separate(runner)
    local failures = countFailures(runner, protectedCall(runner.runSuite, tostring, runner,
        table.unpack(arguments)))
    testTasks.endAll()
    return failures
end

local function run(_, pattern)
    local ok, options = protectedCall(luaunit.LuaUnit.parseCmdLine, tostring, arg)
    if options == left then
        return left.code -- after --help and --version
    elseif not ok then
        complain(options .. "; see -- --help")
        return 1
    end
    local files = findFiles(pattern)
    if #files == 0 then
        complain(("no file matches '%s'"):format(pattern))
        return 1
    end
    local names, problems = loadTestFiles(files)
    if #names > 0 then
        problems = problems + runTests(names, options)
    elseif problems == 0 then
        problems = 1
        complain(("no test is defined in '%s'"):format(pattern))
    end
    return math.min(problems, MOST)
end

return setmetatable({ fake = testTasks.fake }, { __call = run })
