// `zelkctl check`: a program of its own, so that no other command loads what it needs.

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "apps/zelkctl/commands.h"
#include "apps/zelkctl/output.h"
#include "platform/process_setup.h"
#include "platform/program.h"

namespace {

constexpr const char* kProgram = "lib/zelkctl_check";  // from this program's folder on

[[noreturn]] void RunCheck(const Options& options, const std::vector<std::string>& words) {
    std::string self;
    (void)GetModuleFileNameW(self);
    const std::string program = (std::filesystem::path(self).parent_path() / kProgram).string();
    std::vector<std::string> arguments{options.workdir, options.isJson ? "json" : "text"};
    arguments.insert(arguments.end(), words.begin(), words.end());
    FlushOutput();
    const auto error = BecomeProgram(program, arguments);
    throw CommandError(program + ": " + error.message());
}

}  // namespace

void AddCheckCommand(CLI::App& app, const Options& options) {
    auto* command = app.add_subcommand(
        "check", "Whether a start would go well: looks at what it reads, and changes nothing");
    auto words = std::make_shared<std::vector<std::string>>();
    command->add_option("START", *words,
                        "behind --: the options of the agent, and the program in front of them if "
                        "it is another one; by default the command of the service");
    command->footer("Exit codes: 0 no errors, 1 errors, 2 wrong usage.");
    command->callback([&options, words] { RunCheck(options, *words); });
}
