-- An application that waits for good, or runs without waiting.

return {
    main = function()
        if arg[1] == "waits" then
            dom:Wait(-1, "never")
        end
        while true do end
    end,
}
