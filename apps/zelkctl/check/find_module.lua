-- What `require` would find for a module, without running any of it: true and the file, or false and
-- the places. Text that does not compile is an error. C modules are not loaded, as that runs their code.
local name = ...
local searchers, places = package.searchers, ""
for i = 1, #searchers - 2 do
    local loader, file = searchers[i](name)
    if type(loader) == "function" then
        return true, file
    end
    places = places .. (type(loader) == "string" and loader or "")
end
local file, others = package.searchpath(name, package.cpath)
if file then
    return true, file
end
return false, places .. others
