#include <memory>
#include <utility>
#include <vector>

#include "apps/zelkctl/agent.h"
#include "apps/zelkctl/commands.h"
#include "apps/zelkctl/output.h"
#include "apps/zelkctl/reply.h"

namespace {

using ZelkaCore::Json;

// What is to be changed, out of "+MODULE" and "-MODULE".
Json ChangeOf(const std::vector<std::string>& words) {
    Json change{{"add", Json::array()}, {"remove", Json::array()}};
    for (const std::string& word : words) {
        if (word == "-h") {
            throw CLI::CallForHelp();
        }
        const bool isChange =
            word.size() > 1 && (word[0] == '+' || word[0] == '-') && word[1] != '-';
        if (!isChange) {
            throw CommandError("trace takes +MODULE and -MODULE, and not '" + Shown(word) + "'",
                               ExitCode::kUsage);
        }
        change[word[0] == '+' ? "add" : "remove"].push_back(word.substr(1));
    }
    return change;
}

void RunTrace(const Options& options, const std::vector<std::string>& words) {
    const Json change = ChangeOf(words);
    Agent agent(options.workdir);
    const Json reply = words.empty() ? agent.Call("GetTrace") : agent.Call("ChangeTrace", change);
    const Json& modules = agent.Part(reply, "modules");
    if (options.isJson) {
        PrintJson(reply);
        return;
    }
    for (const Json& module : modules) {
        PrintLine(Shown(RawText(module)));
    }
}

}  // namespace

void AddTraceCommand(CLI::App& app, Options& options) {
    auto* command =
        app.add_subcommand("trace", "The modules that are traced: shows and changes them");
    // What is no option here is a module to remove, be it an option of the program.
    command->fallthrough(false)->allow_extras();
    command->set_help_flag("--help", "Print this help message and exit");
    AddCommonOptions(*command, options, "");
    auto modules = std::make_shared<std::vector<std::string>>();
    command->add_option("CHANGE", *modules, "+MODULE to trace it, -MODULE not to")->type_name("");
    command->callback([&options, command, modules] {
        std::vector<std::string> words = *modules;
        for (std::string& extra : command->remaining()) {
            words.push_back(std::move(extra));
        }
        RunTrace(options, words);
    });
}
