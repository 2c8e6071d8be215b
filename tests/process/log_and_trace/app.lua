local app = {}
function app.main()
    dom:Log("error", "an error")
    dom:Log("warning", "a warning")
    dom:Log("verbose", "a note: ä€😀")
    dom:LogTrace("Mine", "not shown")
    dom:Set("app.trace+", "Mine")
    dom:Set("app.trace+", "Other")
    dom:LogTrace("Mine", "shown")
    dom:SetNil("app.trace+")
    dom:LogTrace("Mine", "not shown any more")
end
return app
