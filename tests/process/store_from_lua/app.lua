assert(rawequal(dom, dom0))
assert(getmetatable(dom).__class == "SLB.Dom")
local app = {}
function app.init()
    dom:Set("kept", "here")
    dom = nil
    dom0 = nil
    collectgarbage()
end
function app.main()
    print("main runs on a store that Lua let go")
end
return app
