-- Tells what is heard of the clock in the first two seconds, after a setting behind them, and after that.
return { main = function()
    print("ready")
    print(dom:Wait(2100, "app.clockChange"))
    print("set it")
    print(dom:Wait(30000, "app.clockChange"))
    print(dom:Wait(1500, "app.clockChange"))
end }
