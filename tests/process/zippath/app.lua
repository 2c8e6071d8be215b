print(dom:Get("app.lua.path"))
return {}
