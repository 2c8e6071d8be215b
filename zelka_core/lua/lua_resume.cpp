#include "zelka_core/lua/lua_resume.h"

#include <lua.hpp>

#include "platform/next_function.h"
#include "zelka_core/lua/lua_interpreter.h"

namespace ZelkaCore {

// Tells of a resume for as long as it lives.
class CLuaInterpreter::ResumeScope {
  public:
    ResumeScope(CLuaInterpreter& interpreter, lua_State* thread)
        : m_interpreter(interpreter), m_resume{thread, interpreter.Resumed()} {
        m_interpreter.m_resumed.store(&m_resume, std::memory_order_release);
    }
    ~ResumeScope() { m_interpreter.m_resumed.store(m_resume.outer, std::memory_order_release); }
    ResumeScope(const ResumeScope&) = delete;
    ResumeScope& operator=(const ResumeScope&) = delete;

  private:
    CLuaInterpreter& m_interpreter;
    const LuaResume m_resume;
};

int CLuaInterpreter::Resume(lua_State* thread, lua_State* from, int arguments) {
    static const auto luasOwn = reinterpret_cast<decltype(&lua_resume)>(NextFunction("lua_resume"));
    CLuaInterpreter* interpreter = Of(thread);
    if (interpreter == nullptr) {
        return luasOwn(thread, from, arguments);
    }
    const ResumeScope scope(*interpreter, thread);
    return luasOwn(thread, from, arguments);
}

}  // namespace ZelkaCore

extern "C" int lua_resume(lua_State* L, lua_State* from, int narg) {
    return ZelkaCore::CLuaInterpreter::Resume(L, from, narg);
}
