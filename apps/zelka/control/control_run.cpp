// The method that runs Lua text in the application.

#include <wx/log.h>

#include <algorithm>
#include <utility>

#include "apps/zelka/control/control_call.h"
#include "zelka_core/lua/lua_console.h"
#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/lua/lua_report.h"
#include "zelka_core/lua/task_scheduler.h"
#include "zelka_core/mutex.h"
#include "zelka_core/text.h"

using ZelkaCore::CLuaInterpreter;
using ZelkaCore::ConsoleChunk;
using ZelkaCore::ConsoleStart;
using ZelkaCore::MutexLock;
using ZelkaCore::VarlinkReply;

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kUsualName = "zelkctl";

// Ends a run that is none, by an error.
constexpr const char* kNotRunning = "NotRunning";

// How long the task may not have begun before it is told where the application is; and how long it
// may take to find out.
constexpr std::chrono::seconds kBusyAfter{2};
constexpr std::chrono::milliseconds kLookPatience{200};

// What was printed and is not sent yet, at most; and a piece of it in one reply.
constexpr std::size_t kMostOutput = std::size_t{8} << 20;
constexpr std::size_t kPiece = std::size_t{256} << 10;

// How a run stands: told by the thread that runs Lua, taken by that of the socket.
class RunState : public ZelkaCore::ConsoleClient {
  public:
    struct News {
        std::string output;
        bool hasBegun = false;
        std::string place;             // where the application is instead
        const char* ending = nullptr;  // kind of the last reply, once there is nothing before it
        std::string text;              // of that reply
    };

    explicit RunState(std::function<void()> wake) : m_wake(std::move(wake)) {}

    void Write(std::string_view text) override {
        const MutexLock lock(m_mutex);
        if (m_news.output.size() + text.size() > kMostOutput) {
            throw std::runtime_error("nobody takes what is printed");
        }
        m_news.output += text;
        m_wake();
    }

    void OnBegun() override {
        const MutexLock lock(m_mutex);
        m_news.hasBegun = true;
    }

    void OnFinished(bool isDone, const std::string& text) override {
        End(isDone ? "result" : "failure", text);
    }

    void End(const char* kind, const std::string& text) {
        const MutexLock lock(m_mutex);
        if (m_news.ending == nullptr) {
            m_news.ending = kind;
            m_news.text = text;
            m_wake();
        }
    }

    void SetPlace(const std::string& place) {
        const MutexLock lock(m_mutex);
        m_news.place = place;
        m_wake();
    }

    void GiveUp() {
        const MutexLock lock(m_mutex);
        m_isGivenUp = true;
    }

    bool IsGivenUp() {
        const MutexLock lock(m_mutex);
        return m_isGivenUp;
    }

    // What there is, with `most` bytes of output, which it takes: whole characters.
    News Take(std::size_t most) {
        const MutexLock lock(m_mutex);
        News news = m_news;
        if (news.output.size() > most) {
            while (most > 0 && (static_cast<unsigned char>(news.output[most]) & 0xc0) == 0x80) {
                --most;
            }
            news.output.resize(most);
            news.ending = nullptr;
        }
        m_news.output.erase(0, news.output.size());
        return news;
    }

  private:
    const std::function<void()> m_wake;  // constant after construction

    ZelkaCore::Mutex m_mutex;
    News m_news ZELKA_GUARDED_BY(m_mutex);
    bool m_isGivenUp ZELKA_GUARDED_BY(m_mutex) = false;
};

// In work on the state.
void StartIn(lua_State* L, const ConsoleChunk& chunk, const std::shared_ptr<RunState>& state) {
    const auto* scheduler = CLuaInterpreter::Of(L)->SchedulerIfAny();
    if (state->IsGivenUp()) {
        return;
    }
    if (scheduler == nullptr || scheduler->IsClosed()) {
        state->End(kNotRunning, scheduler == nullptr ? "the application is not there yet"
                                                     : "the application is shutting down");
    } else if (StartConsoleTask(L, chunk, state) == ConsoleStart::kIncomplete) {
        state->End("incomplete", "");
    }
}

class RunCall : public OngoingCall {
  public:
    RunCall(const CallContext& context, ConsoleChunk chunk)
        : m_lua(context.Interpreter()),
          m_wantsMore(context.wantsMore),
          m_state(std::make_shared<RunState>(context.wake)) {
        Work([chunk = std::move(chunk), state = m_state](lua_State* L) {
            StartIn(L, chunk, state);
        });
        if (m_wantsMore) {
            SetDeadline(Clock::now() + kBusyAfter);
        }
    }

    ~RunCall() override {
        m_state->GiveUp();
        if (!IsOver()) {
            Work([state = m_state](lua_State* L) { CancelConsoleTask(L, *state); });
        }
    }

    void Advance(std::vector<VarlinkReply>& replies) override {
        const auto news = m_state->Take(m_wantsMore ? kPiece : kMostOutput);
        m_output += news.output;
        if (m_wantsMore && !m_output.empty()) {
            replies.push_back(Reply("output", std::exchange(m_output, {}), true));
        }
        if (news.ending != nullptr) {
            replies.push_back(news.ending == kNotRunning
                                  ? ControlError(kNotRunning, "reason", news.text).Reply()
                                  : Reply(news.ending, m_output + news.text, false));
            End();
        } else if (news.hasBegun) {
            SetDeadline(std::nullopt);
        } else if (Until() && (Clock::now() >= *Until() || !news.place.empty())) {
            TellBusy(news.place, replies);
        }
    }

  private:
    void Work(ZelkaCore::CLuaStateLock::Work work) const {
        (void)m_lua.Lock().Run(std::move(work), std::chrono::milliseconds(0));
    }

    static VarlinkReply Reply(const char* kind, const std::string& text, bool continues) {
        return {.parameters = {{"kind", kind}, {"text", text}}, .continues = continues};
    }

    // First asks the application where it is.
    void TellBusy(const std::string& place, std::vector<VarlinkReply>& replies) {
        if (!std::exchange(m_isAsked, true)) {
            Work([state = m_state](lua_State* L) { state->SetPlace(ZelkaCore::PlaceOf(L)); });
            SetDeadline(Clock::now() + kLookPatience);
            return;
        }
        replies.push_back(Reply("busy", place.empty() ? "native code" : place, true));
        SetDeadline(std::nullopt);
    }

    // Constant after construction.
    CLuaInterpreter& m_lua;
    const bool m_wantsMore;
    const std::shared_ptr<RunState> m_state;

    std::string m_output;  // kept for the one reply
    bool m_isAsked = false;
};

}  // namespace

CallOutcome Run(const CallContext& context) {
    context.RefuseIfHardened();
    ConsoleChunk chunk{.name = context.OptionalText("name").value_or(kUsualName),
                       .text = context.Text("chunk"),
                       .isInteractive = context.Flag("interactive")};
    wxLogVerbose("Lua text of %zu bytes is run over the control socket as task '%s'",
                 chunk.text.size(), ZelkaCore::FromUtf8(chunk.name));
    return std::make_unique<RunCall>(context, std::move(chunk));
}
