#pragma once

#include <wx/stream.h>
#include <wx/string.h>

#include <atomic>
#include <cstdint>
#include <lua.hpp>
#include <string>

#include "zelka_core/lua/lua_resume.h"
#include "zelka_core/lua/lua_state_lock.h"
#include "zelka_core/lua/lua_stretch.h"
#include "zelka_core/published_pointer.h"

namespace ZelkaCore {

class CDom;
class CTaskScheduler;

// Owns one Lua 5.2 state and the lock that guards it. Errors, stack overflows and exhausted memory
// in a script do not end the process: they all come back as a failed chunk. What a script is free
// to end it with are os.exit, C modules, and the debug library, which can break what native
// functions rely on.
class CLuaInterpreter {
  public:
    // A complete state. `generational` selects Lua's generational garbage collector; `name` is what
    // dumps call the state; `openLibraries` opens the standard libraries, with a `print` that
    // writes where RunScript says. Ends the process if there is no memory for an empty state.
    CLuaInterpreter(bool generational, const wchar_t* name, bool openLibraries);
    virtual ~CLuaInterpreter();  // closes the state; no other thread may use it any more
    CLuaInterpreter(const CLuaInterpreter&) = delete;
    CLuaInterpreter& operator=(const CLuaInterpreter&) = delete;

    // Always the same state, from any thread. To be touched only by a thread that holds Lock().
    [[nodiscard]] lua_State* L() const { return m_L; }
    [[nodiscard]] CLuaStateLock& Lock() { return m_lock; }

    // The interpreter that owns a state, for a binding that is called in it; null for another
    // state. Looks at nothing that a script could change, and is safe in a signal handler.
    static CLuaInterpreter* Of(lua_State* L);

    // The memory that the state may use, in bytes. At first half of what the process may hope for.
    // Work of other threads (CLuaStateLock) may exceed it.
    void SetMemoryLimit(std::uint64_t bytes) { m_memoryLimit = bytes; }

    // Counts memory outside of the state that scripts have brought about into the limit, `bytes` in
    // the place of what was told before. False, with nothing changed, if there is no room for more.
    bool CountOutside(std::uint64_t bytes);

    // Sets `package.path` to `path`, `<bin>/?.lua`, `<bin>/?/init.lua` and what is absolute of
    // Lua's own default, in this order, and `package.cpath` likewise with `cpath` and `<bin>/?.so`.
    // `path` and `cpath` may be empty. May raise a Lua error.
    void SetPackagePaths(const std::string& bin, const std::string& path, const std::string& cpath);

    // Runs a chunk of Lua text in protected mode, holding the lock. `chunk` is read to its end; it
    // gets `arguments` values from the stack and leaves `results` values on it. `name` is what
    // messages call the chunk. `print` writes to `output` meanwhile, or to standard output if null.
    // Returns LUA_OK, or why it failed: LUA_ERRSYNTAX (also for a precompiled chunk), LUA_ERRRUN,
    // LUA_ERRMEM, LUA_ERRERR, LUA_ERRGCMM, or -1 for a foreign C++ exception. After a failure the
    // arguments are gone from the stack and nothing has taken their place.
    int RunScript(wxInputStream& chunk, int arguments, int results, const wxString& name,
                  wxOutputStream* output);

    // Why the last RunScript failed, with a traceback where there is one; empty after a success.
    [[nodiscard]] const wxString& GetErrorInfo() const { return m_errorInfo; }

    [[nodiscard]] const wxString& GetName() const { return m_name; }

    // Whether the state is being closed: finalisers run, and nobody is left to wait for anything.
    [[nodiscard]] bool IsClosing() const { return m_closing; }

    // What runs the tasks of this state. Made at the first call, which may throw std::system_error;
    // `dom` has to outlive the interpreter's state.
    CTaskScheduler& Scheduler(CDom& dom);
    // The same; null before the first call of that.
    [[nodiscard]] CTaskScheduler* SchedulerIfAny() const { return m_scheduler.Get(); }

    // The memory that the state uses, with what is counted into its limit, and that limit. Any
    // thread.
    [[nodiscard]] std::uint64_t MemoryUsed() const { return m_memoryUsed + m_memoryOutside; }
    [[nodiscard]] std::uint64_t MemoryLimit() const { return m_memoryLimit; }

    // How long Lua code runs without waiting.
    [[nodiscard]] LuaStretch& Stretch() { return m_stretch; }

    // The innermost lua_resume under way; null if the state's main thread runs, or nothing. Safe in
    // a signal handler.
    [[nodiscard]] const LuaResume* Resumed() const {
        return m_resumed.load(std::memory_order_acquire);
    }

    // lua_resume, for any state.
    static int Resume(lua_State* thread, lua_State* from, int arguments);

  private:
    class ResumeScope;

    static void* Allocate(void* self, void* block, std::size_t oldSize, std::size_t newSize);
    static int Print(lua_State* L);
    static int PrintArguments(lua_State* L);

    int CallChunk(const std::string& text, int arguments, int results, const wxString& name);
    void WriteOutput(const char* text, std::size_t size) const;

    // Constant after construction.
    const wxString m_name;
    lua_State* m_L = nullptr;

    CLuaStateLock m_lock;
    LuaStretch m_stretch;
    std::atomic<const LuaResume*> m_resumed = nullptr;  // on the stack of the thread that runs Lua

    // Written by the thread that holds m_lock.
    std::atomic<std::uint64_t> m_memoryLimit;
    std::atomic<std::uint64_t> m_memoryUsed = 0;
    std::atomic<std::uint64_t> m_memoryOutside = 0;
    PublishedPointer<CTaskScheduler> m_scheduler;  // owned

    // Guarded by m_lock.
    bool m_closing = false;
    wxString m_errorInfo;
    wxOutputStream* m_output = nullptr;
};

}  // namespace ZelkaCore
