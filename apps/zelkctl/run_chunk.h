#pragma once

#include <string>

#include "apps/zelkctl/agent.h"
#include "platform/terminal.h"

// Lua text that runs in the agent.
struct Chunk {
    std::string text;
    std::string name;  // for messages; may be empty
    bool isInteractive = false;
};

enum class ChunkEnd { kDone, kFailed, kIncomplete, kInterrupted };

// Runs a chunk as a task in the agent. What it prints and its result go to standard output, why it
// failed to standard error, as does the notice that the application keeps it waiting. With
// `interrupts` Ctrl-C ends the wait, and the connection has to go then.
ChunkEnd RunChunk(Agent& agent, const Chunk& chunk, bool isJson,
                  const Interrupts* interrupts = nullptr);
