local lu = require "luaunit"

TestFailing = {}

function TestFailing:testGood()
    print("printed by a test")
    io.write("and written\n")
end

function TestFailing:testEquality()
    lu.assertEquals(dom:Get("app.name"), "something else")
end

function TestFailing:testError()
    dom:Get()
end

function TestFailing:testExit()
    os.exit(0)
end
