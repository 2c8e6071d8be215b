local lu = require "luaunit"

TestVariables = {}

function TestVariables:tearDown()
    for _, name in ipairs(dom:Names("test.")) do
        dom:SetNil(name)
    end
end

function TestVariables:testValuesComeBackAsTheyWereSet()
    for _, value in ipairs { "", "text", "äöü €", "a\0b", "no UTF-8: \xff\xfe", "5", "true",
                             0, -1, 2 ^ 53, -2 ^ 63, 2 ^ 63 - 1024, true, false } do
        dom:Set("test.value", value)
        lu.assertEquals(dom:Get("test.value"), value)
    end
end

function TestVariables:testGetStringTellsAllDigits()
    for value, text in pairs { [2 ^ 62] = "4611686018427387904", [-2 ^ 63] = "-9223372036854775808",
                               [2 ^ 53 + 2] = "9007199254740994", [true] = "true", [false] = "false",
                               ["a\0b"] = "a\0b" } do
        dom:Set("test.value", value)
        lu.assertEquals(dom:GetString("test.value"), text)
    end
end

function TestVariables:testNilMakesAVariableAbsent()
    local clear = {
        function() dom:Set("test.value", nil) end,
        function() dom:SetNil("test.value") end,
    }
    for _, clearValue in ipairs(clear) do
        dom:Set("test.value", 1)
        clearValue()
        lu.assertNil(dom:Get("test.value"))
        lu.assertNil(dom:GetString("test.value"))
        lu.assertEquals(dom:Names("test."), {})
    end
    dom:SetNil("test.value")
end

function TestVariables:testNamesAreSortedByBytesAndTakeAPrefixLiterally()
    for _, name in ipairs { "test.b", "test.a+", "test.a", "test.é", "test.B", "test.a.b", "test-x" } do
        dom:Set(name, true)
    end
    lu.assertEquals(dom:Names("test."),
                    { "test.B", "test.a", "test.a+", "test.a.b", "test.b", "test.é" })
    lu.assertEquals(dom:Names("test.a+"), { "test.a+" })
    lu.assertEquals(dom:Names("test.[ab]"), {})
    local all = dom:Names()
    lu.assertEquals(all, dom:Names(""))
    lu.assertTableContains(all, "test-x")
    lu.assertTableContains(all, "app.path.bin")
    dom:SetNil("test-x")
end

function TestVariables:testTheHostTellsAboutTheRun()
    lu.assertIsTrue(dom:Get("app.mode.unittest"))
    lu.assertEquals(dom:Get("app.name"), arg[0])
    lu.assertEquals(dom:GetString("app.startTime"), ("%d"):format(dom:Get("app.startTime")))
    lu.assertNil(dom:Get("app.background"))
end

function TestVariables:testPluginFoldersLieBelowTheWorkingFolder()
    local work = dom:Get("app.path.work")
    lu.assertEquals(dom:GetPluginWorkdir("sample"), work .. "/plugins/sample")
    lu.assertEquals(dom:GetPluginFile("sample", "data.db"), work .. "/plugins/sample/data.db")
end
