#include <memory>

#include "apps/zelkctl/agent.h"
#include "apps/zelkctl/commands.h"
#include "apps/zelkctl/output.h"

namespace {

void RunStop(const Options& options, bool waits) {
    Agent agent(options.workdir);
    const auto reply = agent.Call("Stop");
    if (waits) {
        agent.AwaitEnd();
    }
    if (options.isJson) {
        PrintJson(reply);
    } else {
        PrintLine(waits ? "The agent has stopped." : "The agent is told to stop.");
    }
}

}  // namespace

void AddStopCommand(CLI::App& app, const Options& options) {
    auto* command = app.add_subcommand("stop", "Stops the agent, and waits until it has gone");
    auto waitsNot = std::make_shared<bool>(false);
    command->add_flag("--no-wait", *waitsNot, "only tell it to stop");
    command->callback([&options, waitsNot] { RunStop(options, !*waitsNot); });
}
