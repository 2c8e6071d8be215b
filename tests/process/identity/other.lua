for _, name in ipairs { "app.name", "app.log.name", "app.name.effective", "app.name.effective.short" } do
    io.write(dom:Get(name), " ")
end
print(dom:Get("app.path.ini"):match("[^/]*$"), dom:Get("app.path.ini.global"))
return {}
