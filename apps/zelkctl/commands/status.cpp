#include "apps/zelkctl/agent.h"
#include "apps/zelkctl/commands.h"
#include "apps/zelkctl/events_table.h"
#include "apps/zelkctl/reply.h"

namespace {

using ZelkaCore::Json;

std::string IdentityText(const Json& status) {
    const std::string name = MemberText(status, "name");
    const std::string effective = Shown(RawMember(status, "effective_name"));
    const std::string shown =
        effective.empty() || effective == name ? name : name + " (as " + effective + ")";
    return shown + " " + MemberText(status, "version") +
           (MemberFlag(status, "is_service") ? ", a service" : ", at a console");
}

Tone PhaseTone(const std::string& phase) {
    if (phase == "main" || phase == "tasks") {
        return Tone::kGood;
    }
    return phase == "over" ? Tone::kBad : Tone::kWarning;
}

std::string ScriptText(const Json& script) {
    std::string text = MemberText(script, "state");
    if (text == "running") {
        text += " for " + MemberDuration(script, "busy_ms") + " without waiting";
        const std::string place = RawMember(script, "place");
        text += place.empty() ? ", inside native code" : ", at " + Shown(place);
    }
    return text + "; tasks: " + MemberText(script, "tasks");
}

std::string MemoryText(const Json& script) {
    const std::string used = MemberSize(script, "memory_bytes");
    return MemberNumber(script, "memory_limit_bytes").value_or(0) > 0
               ? used + " of " + MemberSize(script, "memory_limit_bytes")
               : used;
}

std::string VersionsText(const Json& versions) {
    return "Lua " + MemberText(versions, "lua") + ", OpenSSL " + MemberText(versions, "openssl") +
           ", SQLite " + MemberText(versions, "sqlite") + ", wxWidgets " +
           MemberText(versions, "wxwidgets");
}

void PrintStatus(const Json& status) {
    const Json& process = MemberPart(status, "process");
    const Json& script = MemberPart(status, "script");
    const std::string phase = MemberText(status, "phase");
    Table table;
    table.Add({Cell("application", Tone::kHeading), IdentityText(status)});
    const bool isToStop = MemberFlag(status, "stop_requested");
    table.Add({Cell("phase", Tone::kHeading),
               Cell(isToStop ? phase + ", asked to stop" : phase, PhaseTone(phase))});
    table.Add({Cell("hardened", Tone::kHeading),
               MemberFlag(status, "is_hardened")
                   ? Cell("yes: it can be neither changed nor stopped", Tone::kWarning)
                   : Cell("no")});
    table.Add({Cell("running", Tone::kHeading), "for " + MemberDuration(status, "uptime_ms") +
                                                    ", since " + MemberTime(status, "started")});
    table.Add({Cell("process", Tone::kHeading), MemberText(process, "pid") + ", " +
                                                    MemberSize(process, "resident_bytes") + ", " +
                                                    MemberText(process, "program")});
    table.Add({Cell("folder", Tone::kHeading), MemberText(process, "workdir")});
    table.Add({Cell("log", Tone::kHeading), MemberText(process, "log")});
    table.Add({Cell("Lua", Tone::kHeading), ScriptText(script)});
    table.Add({Cell("Lua memory", Tone::kHeading), MemoryText(script)});
    table.Add({Cell("versions", Tone::kHeading), VersionsText(MemberPart(status, "versions"))});
    Print(table.Take());
    const Json& events = MemberPart(status, "events");
    if (!events.empty()) {
        Table last = EventsTable();
        AddEvents(events, last);
        Print("\n" + last.Take());
    }
}

void RunStatus(const Options& options) {
    Agent agent(options.workdir);
    const Json reply = agent.Call("GetStatus");
    const Json& status = agent.Part(reply, "status");
    if (options.isJson) {
        PrintJson(reply);
    } else {
        PrintStatus(status);
    }
}

}  // namespace

void AddStatusCommand(CLI::App& app, const Options& options) {
    app.add_subcommand("status", "What the agent is and does, and its last events")
        ->callback([&options] { RunStatus(options); });
}
