#pragma once

#include <lua.hpp>

namespace ZelkaCore {

// What the host changes in Lua's standard libraries on this platform.
class LuaPatchForWin {
  public:
    // Changes, in a state with open libraries:
    //   coroutine.create, .wrap, .resume  behave as ever; see lua_coroutines.h
    //   os.exit([code])                   ends the process with what was written so far flushed;
    //                                     it works from any thread, and nothing is run any more
    //   os.setlocale                      knows the locale "C" alone, which is in force: the text
    //                                     settings belong to the whole process
    //   os.execute, io.popen              behave as ever; see lua_children.h
    //   package.preload                   has the native parts of the modules `config` and
    //   `process`
    // Returns 0; may raise a Lua error.
    static int LuaPatch(lua_State* L);
};

}  // namespace ZelkaCore
