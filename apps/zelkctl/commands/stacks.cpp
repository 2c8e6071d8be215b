#include <memory>

#include "apps/zelkctl/agent.h"
#include "apps/zelkctl/commands.h"
#include "apps/zelkctl/output.h"
#include "apps/zelkctl/stacks_text.h"

void AddStacksCommand(CLI::App& app, const Options& options) {
    auto* command = app.add_subcommand("stacks", "The Lua stacks of all tasks and threads");
    auto withLocals = std::make_shared<bool>(false);
    command->add_flag("--locals", *withLocals, "with their local variables");
    command->callback([&options, withLocals] {
        Agent agent(options.workdir);
        const auto reply = agent.Call("GetStacks", ZelkaCore::Json{{"locals", *withLocals}});
        const auto& threads = agent.Part(reply, "threads");
        if (options.isJson) {
            PrintJson(reply);
        } else {
            Print(StacksText(threads));
            TellLeftOut(reply);
        }
    });
}
