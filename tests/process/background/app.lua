local app = {}
function app.main()
    print("main", dom:Get("app.background"))
end
function app.shutdown()
    print("shutdown")
end
return app
