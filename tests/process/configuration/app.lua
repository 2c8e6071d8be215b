-- Shows the variables named behind "--".
for _, name in ipairs(arg) do
    io.write(name, "=", tostring(dom:Get(name)), " (", type(dom:Get(name)), ") ")
end
print()
return {}
