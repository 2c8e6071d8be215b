-- Tells each change of the network.
return { main = function()
    print("ready")
    while true do
        print(dom:Wait(-1, "app.netAdaptersChanged"))
    end
end }
