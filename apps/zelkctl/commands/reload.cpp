#include "apps/zelkctl/agent.h"
#include "apps/zelkctl/commands.h"
#include "apps/zelkctl/output.h"

void AddReloadCommand(CLI::App& app, const Options& options) {
    app.add_subcommand("reload", "Has the agent read its ini files anew")->callback([&options] {
        const auto reply = Agent(options.workdir).Call("Reload");
        if (options.isJson) {
            PrintJson(reply);
        }
    });
}
