-- Shows the table `arg`, every byte beyond ASCII as a number.
local first, last = 0, 0
for index in pairs(arg) do
    first, last = math.min(first, index), math.max(last, index)
end
for index = first, last do
    local text = arg[index]:gsub("[\128-\255]", function(c) return ("\\%d"):format(c:byte()) end)
    io.write(index, "=", text, index < last and " " or "\n")
end
return {}
