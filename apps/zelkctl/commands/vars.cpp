#include <memory>

#include "apps/zelkctl/agent.h"
#include "apps/zelkctl/commands.h"
#include "apps/zelkctl/reply.h"
#include "apps/zelkctl/table.h"

namespace {

void RunVars(const Options& options, const std::string& prefix) {
    Agent agent(options.workdir);
    const auto reply = agent.Call("ListVariables", ZelkaCore::Json{{"prefix", prefix}});
    const auto& variables = agent.Part(reply, "variables");
    if (options.isJson) {
        PrintJson(reply);
        return;
    }
    Table table({"VARIABLE", "VALUE"});
    for (const auto& variable : variables) {
        table.Add({MemberText(variable, "name"), MemberText(variable, "value")});
    }
    Print(table.Take());
}

}  // namespace

void AddVarsCommand(CLI::App& app, const Options& options) {
    auto* command =
        app.add_subcommand("vars", "The domain variables; the values of secrets are ***");
    auto prefix = std::make_shared<std::string>();
    command->add_option("PREFIX", *prefix, "only those whose name begins with it")->type_name("");
    command->callback([&options, prefix] { RunVars(options, *prefix); });
}
