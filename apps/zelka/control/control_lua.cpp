// The methods that look at the Lua state. Whoever holds it answers, so that the thread of the
// control socket waits for nobody.

#include "apps/zelka/control/control_lua.h"

#include <utility>

#include "apps/zelka/control/control_call.h"
#include "zelka_core/lua/lua_console.h"
#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/lua/lua_report.h"
#include "zelka_core/lua/lua_work.h"

using ZelkaCore::Json;
using ZelkaCore::LuaReportOptions;
using ZelkaCore::LuaThreadReport;
using ZelkaCore::MutexLock;
using ZelkaCore::VarlinkReply;

namespace {

using Clock = std::chrono::steady_clock;

// How long a script that is inside native code is waited for.
constexpr std::chrono::seconds kPatience{2};

// Of one reply.
constexpr std::size_t kMostThreads = 10'000;
constexpr std::size_t kMostBytes = std::size_t{16} << 20;

std::string Joined(const std::vector<ZelkaCore::LuaStackReport>& stacks,
                   std::string ZelkaCore::LuaStackReport::*part) {
    std::string text;
    for (const auto& stack : stacks) {
        text += (text.empty() || (stack.*part).empty() ? "" : "\n") + stack.*part;
    }
    return text;
}

Json AsJson(const LuaThreadReport& report, const LuaReportOptions& options) {
    Json thread{{"name", report.name}, {"is_task", report.isTask}, {"state", report.state}};
    if (!report.waitsFor.empty()) {
        thread["waits_for"] = report.waitsFor;
    }
    if (report.since) {
        thread["since_ms"] = report.since->count();
    }
    thread["place"] = report.place;
    if (options.tracebacks) {
        thread["traceback"] = Joined(report.stacks, &ZelkaCore::LuaStackReport::traceback);
    }
    if (options.locals) {
        thread["locals"] = Joined(report.stacks, &ZelkaCore::LuaStackReport::locals);
    }
    return thread;
}

// Takes reports as long as a reply has room for them.
class ThreadList {
  public:
    explicit ThreadList(const LuaReportOptions& options) : m_options(options) {}

    void Add(const LuaThreadReport& report) {
        if (m_list.size() >= kMostThreads || m_bytes >= kMostBytes) {
            ++m_leftOut;
            return;
        }
        for (const auto& stack : report.stacks) {
            m_bytes += stack.traceback.size() + stack.locals.size();
        }
        m_list.push_back(AsJson(report, m_options));
    }

    Json Take() { return {{"threads", std::move(m_list)}, {"left_out", m_leftOut}}; }

  private:
    const LuaReportOptions m_options;
    Json m_list = Json::array();
    std::size_t m_bytes = 0;
    std::size_t m_leftOut = 0;
};

CallOutcome ReportThreads(const CallContext& context, LuaReportOptions options, bool onlyTasks) {
    const auto ask = [options, onlyTasks](lua_State* L) {
        ThreadList list(options);
        std::string error;
        const auto report = [&](lua_State* state) {
            const auto take = [&](const LuaThreadReport& thread) { list.Add(thread); };
            if (!onlyTasks) {
                ReportLuaThreads(state, options, take);
            }
            ReportTasks(state, options, take);
        };
        if (!ZelkaCore::RunProtected(L, report, error)) {
            throw ControlError("Failed", "reason", error);
        }
        return list.Take();
    };
    return std::make_unique<LuaQuery>(context, ask, kPatience, [] {
        return ControlError("Busy", "reason", "the application is inside native code").Reply();
    });
}

}  // namespace

LuaQuery::LuaQuery(const CallContext& context, Ask ask, std::chrono::milliseconds patience,
                   Late late)
    : m_late(std::move(late)), m_shared(std::make_shared<Shared>()) {
    SetDeadline(Clock::now() + patience);
    const auto work = [shared = m_shared, ask = std::move(ask), wake = context.wake](lua_State* L) {
        {
            const MutexLock lock(shared->mutex);
            if (shared->isGivenUp) {
                return;
            }
        }
        VarlinkReply reply;
        try {
            reply.parameters = ask(L);
        } catch (const ControlError& error) {
            reply = error.Reply();
        } catch (const std::exception& error) {
            reply = ControlError("Failed", "reason", error.what()).Reply();
        }
        const MutexLock lock(shared->mutex);
        shared->reply = std::move(reply);
        wake();
    };
    (void)context.Interpreter().Lock().Run(work, std::chrono::milliseconds(0));
}

LuaQuery::~LuaQuery() {
    const MutexLock lock(m_shared->mutex);
    m_shared->isGivenUp = true;
}

void LuaQuery::Advance(std::vector<VarlinkReply>& replies) {
    const MutexLock lock(m_shared->mutex);
    if (m_shared->reply) {
        replies.push_back(std::move(*m_shared->reply));
        End();
    } else if (Clock::now() >= *Until()) {
        replies.push_back(m_late());
        End();
    }
}

CallOutcome ListTasks(const CallContext& context) {
    return ReportThreads(context, {}, true);
}

CallOutcome GetStacks(const CallContext& context) {
    return ReportThreads(context, {.locals = context.Flag("locals"), .tracebacks = true}, false);
}

CallOutcome Complete(const CallContext& context) {
    const auto ask = [text = context.Text("text")](lua_State* L) -> Json {
        return {{"candidates", ZelkaCore::CompleteLua(L, text)}};
    };
    return std::make_unique<LuaQuery>(context, ask, kPatience, [] {
        return ControlError("Busy", "reason", "the application is inside native code").Reply();
    });
}
