#pragma once

#include <wx/string.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "zelka_core/mutex.h"
#include "zelka_core/store/conditions.h"

struct lua_State;

namespace ZelkaCore {

class AgentDatabase;
class CAgentEvent;
struct StoredAgentEvent;

// The domain store: the one object through which the host and the Lua application share state. It
// holds named variables, carries named conditions and knows where plug-ins keep their files.
//
// Names are dotted strings in UTF-8. The operations with a narrow and with a wide name address the
// same variables. Every operation may be called from any thread, and each is one step: a reader
// sees a variable before or after a write, never in between.
class CDom {
  public:
    // What a variable can hold. An absent variable holds nothing.
    using Value = std::variant<std::string, std::int64_t, bool>;

    // Makes the root store; the caller owns it. There are no others: with a name, a parent or
    // `shared` the result is null. `*created`, if given, says whether there is a result.
    static CDom* New(const char* name, CDom* parent, bool* created, bool shared);
    virtual ~CDom();
    CDom(const CDom&) = delete;
    CDom& operator=(const CDom&) = delete;

    // The text form of a variable: a string as it is, an integer in decimal, "true" or "false".
    // Absent: the empty string.
    [[nodiscard]] std::string Get(const std::string& name) const;
    [[nodiscard]] wxString GetWxString(const wxString& name) const;

    // A boolean variable. False, with `value` untouched, if it is absent or of another type.
    bool Get(const std::string& name, bool& value) const;

    // A variable with its type; none if it is absent.
    [[nodiscard]] std::optional<Value> Find(const std::string& name) const;

    // Writes a variable, whatever it held before. False, with nothing changed, for an empty name.
    // `app.trace` and `app.trace+` take effect in the trace at once: the first names the modules
    // that are traced, every write to the second adds some, and clearing takes either's away.
    bool Set(const std::string& name, const std::string& value);
    bool Set(const std::string& name, const char* value);
    bool Set(const std::string& name, std::int64_t value);
    bool Set(const std::string& name, bool value);
    bool SetWx(const wxString& name, const wxString& value);
    bool SetWx(const wxString& name, std::int64_t value);

    // Makes a variable absent. False if it was already.
    bool SetNil(const std::string& name);

    // The names of all variables that begin with `prefix`, sorted by their bytes.
    [[nodiscard]] std::vector<std::string> Names(const std::string& prefix) const;

    // About how many bytes of memory variables and the names of raised conditions take, and how
    // many they would take with a variable written.
    [[nodiscard]] std::size_t Size() const;
    [[nodiscard]] std::size_t SizeWith(const std::string& name, const Value& value) const;

    // Raises a condition; see CConditions::Raise.
    unsigned int ConditionRaise(const std::string& name);
    [[nodiscard]] CConditions& Conditions() { return m_conditions; }

    // Asks the application to end: from now on StopRequested is true, and the condition `app.stop`
    // is raised for good. Asking again changes nothing.
    void RequestStop();
    [[nodiscard]] bool StopRequested() const { return m_stopRequested; }

    // The folder `plugins/<plugin>` below `app.path.work`, without a trailing separator, and a file
    // in it. Nothing is made and nothing needs to exist. Empty if `app.path.work` is absent or a
    // name is empty, ".", ".." or holds a separator or a null.
    [[nodiscard]] wxString GetPluginWorkdirWx(const wxString& plugin) const;
    [[nodiscard]] std::string GetPluginFile(const std::string& plugin,
                                            const std::string& file) const;

    // Settings that outlive the process, and the record of agent events; see AgentDatabase, which
    // keeps both in the file `zelk_agent.db` of the plug-in `zelka_core`. Before `app.path.work` is
    // set there are none, and nothing can be written. SettingRetrieve is true if there is a
    // setting; the output is untouched otherwise. AgentEventWrite takes a complete event and keeps
    // no reference to it; that it could not be written stands in the log. Each one that could
    // raises the condition `app.agentEvent`, and goes to the journal where that is used.
    bool SettingStore(const std::string& name, const std::string& value);
    bool SettingRetrieve(const std::string& name, std::string& value);
    bool SettingRetrieve(const wxString& name, wxString& value);
    bool SettingRemove(const std::string& name);
    void AgentEventWrite(CAgentEvent& event);
    bool TryAgentEventWrite(const CAgentEvent& event);
    bool AgentEvents(std::int64_t afterId, std::int64_t limit,
                     std::vector<StoredAgentEvent>& events);
    bool LastAgentEvents(std::int64_t count, std::vector<StoredAgentEvent>& events);
    bool Settings(std::vector<std::pair<std::string, std::string>>& settings);

    // Where these are, of the working folder that was set when it was first asked for; lasts as
    // long as the store. Null before that.
    AgentDatabase* Database();

    // Puts a searcher for the archives that `app.lua.zippath` names at this moment, separated by
    // ';', into `package.searchers` of a Lua state, behind `package.preload` and before the search
    // for files. Returns 0; may raise a Lua error.
    int RegisterLoader(lua_State* L) const;

    // A lua_CFunction that writes the state of every Lua thread to the log as verbose lines.
    // Arguments: the store, a Lua thread or nil for all, locals, tracebacks, variables of the
    // store. Without the booleans each thread gets one line.
    static int DumpAllLua(lua_State* L);

  protected:
    CDom();

  private:
    bool Write(const std::string& name, Value value);
    std::size_t GrowthBy(const std::string& name, const Value& value) const ZELKA_REQUIRES(m_mutex);

    CConditions m_conditions;
    std::atomic<bool> m_stopRequested = false;
    mutable Mutex m_mutex;
    std::map<std::string, Value, std::less<>> m_variables ZELKA_GUARDED_BY(m_mutex);
    std::size_t m_size ZELKA_GUARDED_BY(m_mutex) = 0;  // of the variables
    std::unique_ptr<AgentDatabase> m_database
        ZELKA_GUARDED_BY(m_mutex);  // made once, then constant
};

// The text form that CDom::Get gives.
std::string ToText(const CDom::Value& value);

// Whether a plug-in's or file's name is one path component that names an entry of its folder.
bool IsPlainName(const std::string& name);

}  // namespace ZelkaCore
