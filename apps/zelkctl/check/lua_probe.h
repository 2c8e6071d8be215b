#pragma once

#include <string>

#include "zelka_core/lua/lua_interpreter.h"
#include "zelka_core/store/dom.h"

// A Lua state that finds modules as that of a start would, and runs none of them.
class LuaProbe {
  public:
    // By the search paths and archives that the store names. Throws std::runtime_error.
    explicit LuaProbe(const ZelkaCore::CDom& dom);

    enum class Answer { kFound, kNotFound, kBroken };

    // `text`: of what is found nothing, else the places that were looked at, or Lua's error.
    Answer Find(const std::string& module, std::string& text);

  private:
    ZelkaCore::CLuaInterpreter m_lua;
};
