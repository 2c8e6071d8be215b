// How the agent is: answered at once, whatever the application does.

#include <openssl/crypto.h>
#include <sqlite3.h>
#include <wx/utils.h>
#include <wx/version.h>

#include <chrono>
#include <utility>

#include "apps/zelka/control/control_lua.h"
#include "apps/zelka/version.h"
#include "platform/memory.h"
#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/lua/lua_report.h"
#include "zelka_core/lua/task_scheduler.h"
#include "zelka_core/store/dom.h"

using ZelkaCore::CDom;
using ZelkaCore::CLuaInterpreter;
using ZelkaCore::Json;

namespace {

// For a script that runs to say where it is.
constexpr std::chrono::milliseconds kLookPatience{20};

constexpr std::int64_t kEventsShown = 5;

// Grows with what the interface offers.
constexpr int kInterfaceVersion = 1;

const char* NameOf(RunPhase phase) {
    switch (phase) {
        case RunPhase::kStarting:
            return "starting";
        case RunPhase::kInit:
            return "init";
        case RunPhase::kMain:
            return "main";
        case RunPhase::kTasks:
            return "tasks";
        case RunPhase::kStopping:
            return "stopping";
        case RunPhase::kShutdown:
            return "shutdown";
        default:
            return "over";
    }
}

Json ProcessOf(const CDom& dom) {
    const std::string work = dom.Get("app.path.work");
    return {{"pid", wxGetProcessId()},
            {"program", dom.Get("app.path.exe")},
            {"workdir", work},
            {"log", work + "/log/" + dom.Get("app.log.name") + ".log"},
            {"resident_bytes", ResidentMemory()}};
}

Json ScriptOf(CLuaInterpreter* lua) {
    if (lua == nullptr) {
        return {{"state", "none"},
                {"busy_ms", 0},
                {"memory_bytes", 0},
                {"memory_limit_bytes", 0},
                {"tasks", 0}};
    }
    const auto busy =
        std::chrono::duration_cast<std::chrono::milliseconds>(lua->Stretch().Length());
    const auto* scheduler = lua->SchedulerIfAny();
    return {{"state", lua->Stretch().Since() != 0 ? "running" : "waiting"},
            {"busy_ms", busy.count()},
            {"memory_bytes", lua->MemoryUsed()},
            {"memory_limit_bytes", lua->MemoryLimit()},
            {"tasks", scheduler != nullptr ? scheduler->Living() : 0}};
}

Json Versions() {
    return {{"lua", LUA_VERSION_MAJOR "." LUA_VERSION_MINOR "." LUA_VERSION_RELEASE},
            {"openssl", OpenSSL_version(OPENSSL_VERSION_STRING)},
            {"sqlite", sqlite3_libversion()},
            {"wxwidgets", wxVERSION_NUM_DOT_STRING},
            {"varlink_interface", kInterfaceVersion}};
}

Json StatusOf(ControlTarget& target) {
    CDom& dom = *target.Dom();
    const auto start = dom.Find("app.startTime");
    const auto* started = start ? std::get_if<std::int64_t>(&*start) : nullptr;
    std::vector<ZelkaCore::StoredAgentEvent> events;
    (void)dom.LastAgentEvents(kEventsShown, events);
    return {{"phase", NameOf(target.Phase())},
            {"stop_requested", dom.StopRequested()},
            {"name", dom.Get("app.name")},
            {"effective_name", dom.Get("app.name.effective")},
            {"version", dom.Get("app.version")},
            {"is_service", target.IsService()},
            {"is_hardened", target.IsHardened()},
            {"started", started != nullptr ? *started : 0},
            {"uptime_ms", target.Uptime().count()},
            {"process", ProcessOf(dom)},
            {"script", ScriptOf(target.Interpreter())},
            {"versions", Versions()},
            {"events", EventList(events)}};
}

}  // namespace

CallOutcome GetStatus(const CallContext& context) {
    Json status{{"status", StatusOf(context.target)}};
    if (status["status"]["script"]["state"] != "running") {
        return status;
    }
    const auto ask = [status](lua_State* L) {
        Json complete = status;
        complete["status"]["script"]["place"] = ZelkaCore::PlaceOf(L);
        return complete;
    };
    return std::make_unique<LuaQuery>(context, ask, kLookPatience, [status] {
        return ZelkaCore::VarlinkReply{.parameters = status};
    });
}
