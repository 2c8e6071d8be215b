#include "zelka_core/store/dom.h"

#include <utility>

#include "zelka_core/log/trace.h"
#include "zelka_core/store/agent_database.h"
#include "zelka_core/store/event_journal.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

constexpr const char* kTrace = "app.trace";
constexpr const char* kTraceMore = "app.trace+";

// Hands what was written to a trace variable on to the trace.
void ApplyTraceVariable(const std::string& name, const CDom::Value& modules) {
    if (name == kTrace) {
        SetTraceModules(FromUtf8(ToText(modules)));
    } else if (name == kTraceMore) {
        AddTraceModules(FromUtf8(ToText(modules)));
    }
}

// About how many bytes of memory a variable takes.
std::size_t SizeOf(const std::string& name, const CDom::Value& value) {
    constexpr std::size_t kNode = 128;
    const auto* text = std::get_if<std::string>(&value);
    return kNode + name.size() + (text != nullptr ? text->size() : 0);
}

}  // namespace

CDom* CDom::New(const char* name, CDom* parent, bool* created, bool shared) {
    const bool root = name == nullptr && parent == nullptr && !shared;
    if (created != nullptr) {
        *created = root;
    }
    return root ? new CDom : nullptr;
}

CDom::CDom() = default;
CDom::~CDom() = default;

std::string CDom::Get(const std::string& name) const {
    const auto value = Find(name);
    return value ? ToText(*value) : std::string();
}

wxString CDom::GetWxString(const wxString& name) const {
    return FromUtf8(Get(ToUtf8(name)));
}

bool CDom::Get(const std::string& name, bool& value) const {
    const auto found = Find(name);
    const bool* const boolean = found ? std::get_if<bool>(&*found) : nullptr;
    if (boolean == nullptr) {
        return false;
    }
    value = *boolean;
    return true;
}

std::optional<CDom::Value> CDom::Find(const std::string& name) const {
    const MutexLock lock(m_mutex);
    const auto found = m_variables.find(name);
    return found == m_variables.end() ? std::nullopt : std::optional(found->second);
}

bool CDom::Set(const std::string& name, const std::string& value) {
    return Write(name, value);
}

bool CDom::Set(const std::string& name, const char* value) {
    return Write(name, std::string(value));
}

bool CDom::Set(const std::string& name, std::int64_t value) {
    return Write(name, value);
}

bool CDom::Set(const std::string& name, bool value) {
    return Write(name, value);
}

bool CDom::SetWx(const wxString& name, const wxString& value) {
    return Write(ToUtf8(name), ToUtf8(value));
}

bool CDom::SetWx(const wxString& name, std::int64_t value) {
    return Write(ToUtf8(name), value);
}

bool CDom::Write(const std::string& name, Value value) {
    if (name.empty()) {
        return false;
    }
    ApplyTraceVariable(name, value);
    const MutexLock lock(m_mutex);
    m_size += GrowthBy(name, value);
    m_variables.insert_or_assign(name, std::move(value));
    return true;
}

// Modulo 2^64 if the variable shrinks.
std::size_t CDom::GrowthBy(const std::string& name, const Value& value) const {
    const auto found = m_variables.find(name);
    return SizeOf(name, value) - (found == m_variables.end() ? 0 : SizeOf(name, found->second));
}

std::size_t CDom::SizeWith(const std::string& name, const Value& value) const {
    const MutexLock lock(m_mutex);
    return m_size + GrowthBy(name, value) + m_conditions.Size();
}

std::size_t CDom::Size() const {
    const MutexLock lock(m_mutex);
    return m_size + m_conditions.Size();
}

bool CDom::SetNil(const std::string& name) {
    if (name == kTrace) {
        SetTraceModules(wxEmptyString);
    } else if (name == kTraceMore) {
        ClearAddedTraceModules();
    }
    const MutexLock lock(m_mutex);
    const auto found = m_variables.find(name);
    if (found == m_variables.end()) {
        return false;
    }
    m_size -= SizeOf(name, found->second);
    m_variables.erase(found);
    return true;
}

std::vector<std::string> CDom::Names(const std::string& prefix) const {
    const MutexLock lock(m_mutex);
    std::vector<std::string> names;
    for (auto it = m_variables.lower_bound(prefix);
         it != m_variables.end() && it->first.starts_with(prefix); ++it) {
        names.push_back(it->first);
    }
    return names;
}

void CDom::RequestStop() {
    if (!m_stopRequested.exchange(true)) {
        (void)m_conditions.Raise("app.stop", true);
    }
}

unsigned int CDom::ConditionRaise(const std::string& name) {
    return m_conditions.Raise(name);
}

wxString CDom::GetPluginWorkdirWx(const wxString& plugin) const {
    const std::string name = ToUtf8(plugin);
    const std::string work = Get("app.path.work");
    if (work.empty() || !IsPlainName(name)) {
        return {};
    }
    return FromUtf8(work + "/plugins/" + name);
}

std::string CDom::GetPluginFile(const std::string& plugin, const std::string& file) const {
    const wxString folder = GetPluginWorkdirWx(FromUtf8(plugin));
    return folder.empty() || !IsPlainName(file) ? std::string() : ToUtf8(folder) + "/" + file;
}

bool CDom::SettingStore(const std::string& name, const std::string& value) {
    AgentDatabase* database = Database();
    return database != nullptr && database->SettingStore(name, value);
}

bool CDom::SettingRetrieve(const std::string& name, std::string& value) {
    AgentDatabase* database = Database();
    return database != nullptr && database->SettingRetrieve(name, value);
}

bool CDom::SettingRetrieve(const wxString& name, wxString& value) {
    std::string text;
    if (!SettingRetrieve(ToUtf8(name), text)) {
        return false;
    }
    value = FromUtf8(text);
    return true;
}

bool CDom::SettingRemove(const std::string& name) {
    AgentDatabase* database = Database();
    return database != nullptr && database->SettingRemove(name);
}

void CDom::AgentEventWrite(CAgentEvent& event) {
    (void)TryAgentEventWrite(event);
}

bool CDom::TryAgentEventWrite(const CAgentEvent& event) {
    AgentDatabase* database = Database();
    std::int64_t id = 0;
    if (database == nullptr || !database->EventWrite(event, &id)) {
        return false;
    }
    TellJournal(event, id);
    (void)m_conditions.Raise("app.agentEvent");
    return true;
}

bool CDom::AgentEvents(std::int64_t afterId, std::int64_t limit,
                       std::vector<StoredAgentEvent>& events) {
    AgentDatabase* database = Database();
    return database != nullptr && database->Events(afterId, limit, events);
}

bool CDom::LastAgentEvents(std::int64_t count, std::vector<StoredAgentEvent>& events) {
    AgentDatabase* database = Database();
    return database != nullptr && database->LastEvents(count, events);
}

bool CDom::Settings(std::vector<std::pair<std::string, std::string>>& settings) {
    AgentDatabase* database = Database();
    return database != nullptr && database->Settings(settings);
}

AgentDatabase* CDom::Database() {
    const std::string file = GetPluginFile("zelka_core", "zelk_agent.db");
    const MutexLock lock(m_mutex);
    if (!m_database && !file.empty()) {
        m_database = std::make_unique<AgentDatabase>(file, CSqliteDatabase::Tuning());
    }
    return m_database.get();
}

std::string ToText(const CDom::Value& value) {
    if (const auto* text = std::get_if<std::string>(&value)) {
        return *text;
    }
    if (const auto* number = std::get_if<std::int64_t>(&value)) {
        return std::to_string(*number);
    }
    return std::get<bool>(value) ? "true" : "false";
}

bool IsPlainName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(std::string("/\\\0", 3)) == std::string::npos;
}

}  // namespace ZelkaCore
