// The methods that the store answers: variables, settings, events, trace.

#include <wx/log.h>

#include <algorithm>
#include <utility>

#include "apps/zelka/control/control_call.h"
#include "zelka_core/log/trace.h"
#include "zelka_core/secret_name.h"
#include "zelka_core/store/dom.h"
#include "zelka_core/text.h"

using ZelkaCore::CAgentEvent;
using ZelkaCore::CDom;
using ZelkaCore::FromUtf8;
using ZelkaCore::Json;
using ZelkaCore::StoredAgentEvent;
using ZelkaCore::ToUtf8;
using ZelkaCore::VarlinkReply;

namespace {

constexpr std::int64_t kMostEvents = 1000;  // of one reply
constexpr std::int64_t kUsualEvents = 20;   // without being told how many

Json AsJson(const CDom::Value& value) {
    return std::visit([](const auto& held) { return Json(held); }, value);
}

// Tells the events behind one, and those that come.
class FollowEvents : public OngoingCall {
  public:
    FollowEvents(CDom& dom, std::vector<StoredAgentEvent> first, std::int64_t after)
        : m_dom(dom), m_next(std::move(first)), m_after(after) {}

    void Advance(std::vector<VarlinkReply>& replies) override {
        if (!m_isBegun || !m_next.empty() || HasNews()) {
            m_isBegun = true;
            m_after = m_next.empty() ? m_after : m_next.back().id;
            replies.push_back({.parameters = {{"events", EventList(m_next)}}, .continues = true});
            m_next.clear();
            m_mayBeMore = true;
        }
    }

    [[nodiscard]] bool AwaitsEvents() const override { return true; }

  private:
    // Asks the database only if something was raised since.
    bool HasNews() {
        const std::uint64_t raise = m_dom.Conditions().LastRaise();
        if (!m_mayBeMore && raise == std::exchange(m_seen, raise)) {
            return false;
        }
        m_seen = raise;
        m_mayBeMore =
            m_dom.AgentEvents(m_after, kMostEvents, m_next) && std::ssize(m_next) == kMostEvents;
        return !m_next.empty();
    }

    CDom& m_dom;
    std::vector<StoredAgentEvent> m_next;
    std::int64_t m_after;
    std::uint64_t m_seen = 0;
    bool m_isBegun = false;
    bool m_mayBeMore = true;
};

Json TraceReply() {
    Json modules = Json::array();
    for (const wxString& name : ZelkaCore::EnabledTraceModules()) {
        modules.push_back(ToUtf8(name));
    }
    return {{"modules", std::move(modules)}};
}

}  // namespace

Json EventList(const std::vector<StoredAgentEvent>& events) {
    Json list = Json::array();
    for (const auto& [id, event] : events) {
        list.push_back({{"id", id},
                        {"code", event.GetEventCode()},
                        {"severity", CAgentEvent::NameOf(event.GetSeverity())},
                        {"time", event.GetJTime()},
                        {"data", ToUtf8(event.GetData())}});
    }
    return list;
}

CallOutcome ListVariables(const CallContext& context) {
    const CDom& dom = *context.target.Dom();
    Json list = Json::array();
    for (const std::string& name : dom.Names(context.OptionalText("prefix").value_or(""))) {
        if (const auto value = dom.Find(name)) {
            const bool isSecret = ZelkaCore::IsSecretName(name);
            list.push_back(
                {{"name", name}, {"value", isSecret ? Json(ZelkaCore::kMasked) : AsJson(*value)}});
        }
    }
    return Json{{"variables", std::move(list)}};
}

CallOutcome ListSettings(const CallContext& context) {
    std::vector<std::pair<std::string, std::string>> settings;
    (void)context.target.Dom()->Settings(settings);
    Json list = Json::array();
    for (const auto& [name, value] : settings) {
        list.push_back({{"name", name},
                        {"value", ZelkaCore::IsSecretName(name) ? ZelkaCore::kMasked : value}});
    }
    return Json{{"settings", std::move(list)}};
}

CallOutcome GetSetting(const CallContext& context) {
    const std::string name = context.Text("name");
    std::string value;
    if (!context.target.Dom()->SettingRetrieve(name, value)) {
        throw ControlError("NoSuchSetting", "name", name);
    }
    return Json{{"value", ZelkaCore::IsSecretName(name) ? ZelkaCore::kMasked : value}};
}

CallOutcome StoreSetting(const CallContext& context) {
    context.RefuseIfHardened();
    const std::string name = context.Text("name");
    if (!context.target.Dom()->SettingStore(name, context.Text("value"))) {
        throw ControlError("Failed", "reason", "the setting cannot be stored");
    }
    wxLogVerbose("Setting '%s' was stored over the control socket", FromUtf8(name));
    return Json::object();
}

CallOutcome RemoveSetting(const CallContext& context) {
    context.RefuseIfHardened();
    const std::string name = context.Text("name");
    if (!context.target.Dom()->SettingRemove(name)) {
        throw ControlError("Failed", "reason", "the setting cannot be removed");
    }
    wxLogVerbose("Setting '%s' was removed over the control socket", FromUtf8(name));
    return Json::object();
}

CallOutcome ListEvents(const CallContext& context) {
    CDom& dom = *context.target.Dom();
    const auto after = context.OptionalInteger("after");
    const std::int64_t limit = std::clamp<std::int64_t>(
        context.OptionalInteger("limit").value_or(after ? kMostEvents : kUsualEvents), 0,
        kMostEvents);
    std::vector<StoredAgentEvent> events;
    (void)(after ? dom.AgentEvents(*after, limit, events) : dom.LastAgentEvents(limit, events));
    if (context.wantsMore && context.Flag("follow")) {
        std::int64_t last = after.value_or(0);
        std::vector<StoredAgentEvent> newest;
        if (events.empty() && dom.LastAgentEvents(1, newest) && !newest.empty() && !after) {
            last = newest.back().id;
        }
        return std::make_unique<FollowEvents>(dom, std::move(events), last);
    }
    return Json{{"events", EventList(events)}};
}

CallOutcome GetTrace(const CallContext&) {
    return TraceReply();
}

CallOutcome ChangeTrace(const CallContext& context) {
    const auto add = context.Texts("add");
    const auto remove = context.Texts("remove");
    for (const std::string& name : add) {
        ZelkaCore::SwitchTraceModule(FromUtf8(name), true);
    }
    for (const std::string& name : remove) {
        ZelkaCore::SwitchTraceModule(FromUtf8(name), false);
    }
    return TraceReply();
}
