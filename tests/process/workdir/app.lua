print(dom:Get("app.path.work"))
return {}
