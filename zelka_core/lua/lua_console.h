#pragma once

#include <lua.hpp>
#include <memory>
#include <string>
#include <vector>

#include "zelka_core/lua/task.h"

// Lua text that somebody outside of the application wants to be run in it.

namespace ZelkaCore {

// Who wants it. The operations are called by the thread that runs Lua, and do not block.
class ConsoleClient : public TaskOutput {
  public:
    virtual void OnBegun() = 0;
    // Once, at the end: the results as text, or the error with its traceback.
    virtual void OnFinished(bool isDone, const std::string& text) = 0;
};

struct ConsoleChunk {
    std::string name;  // of the task, and of the chunk in messages
    std::string text;  // statements or expressions
    // It may lack its end, and texts among its results are shown as such, in quotes.
    bool isInteractive = false;
};

enum class ConsoleStart {
    kStarted,
    kIncomplete,  // interactive text that only lacks its end
    kFailed,      // OnFinished was called: the text is no Lua, or there is no memory
};

// Starts a task that runs the chunk and prints to the client. In work of any thread
// (lua_state_lock.h); the scheduler of the state is to take tasks.
ConsoleStart StartConsoleTask(lua_State* L, const ConsoleChunk& chunk,
                              const std::shared_ptr<ConsoleClient>& client);

// Cancels the task of that client, if it has not ended. Likewise.
void CancelConsoleTask(lua_State* L, const ConsoleClient& client);

// What `text` may be continued to: its last name, after any number of names with dots or a colon
// behind them, as a global or a member. In work of any thread; calls nothing of the application.
std::vector<std::string> CompleteLua(lua_State* L, const std::string& text);

}  // namespace ZelkaCore
