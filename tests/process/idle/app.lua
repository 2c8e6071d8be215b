return { main = function() print("idle") io.stdout:flush() dom:Wait(-1, "never") end }
