// The operator's tool: asks a running agent, and looks at what an agent has on the disk.

#include <wx/init.h>
#include <wx/log.h>

#include <exception>

#include "apps/zelka/version.h"
#include "apps/zelkctl/commands.h"
#include "apps/zelkctl/output.h"
#include "platform/process_setup.h"

namespace {

void AddCommands(CLI::App& app, Options& options) {
    AddStatusCommand(app, options);
    AddTasksCommand(app, options);
    AddStacksCommand(app, options);
    AddVarsCommand(app, options);
    AddSettingsCommand(app, options);
    AddEventsCommand(app, options);
    AddLogCommand(app, options);
    AddTraceCommand(app, options);
    AddRunCommand(app, options);
    AddConsoleCommand(app, options);
    AddReloadCommand(app, options);
    AddStopCommand(app, options);
    AddCheckCommand(app, options);
    AddDiagnoseCommand(app, options);
    AddDumpsCommand(app, options);
    AddPackagesCommand(app, options);
    AddVerifyCommand(app, options);
    AddRemoveCommand(app, options);
    AddPackCommand(app, options);
    AddSettleCommand(app, options);
    AddSignCommand(app, options);
}

}  // namespace

void AddCommonOptions(CLI::App& app, Options& options, const std::string& heading) {
    app.add_option("--workdir", options.workdir, "the working folder of the agent")
        ->capture_default_str()
        ->type_name("FOLDER")
        ->check([](const std::string& folder) { return folder.empty() ? "it is empty" : ""; })
        ->group(heading);
    app.add_flag("--json", options.isJson, "print JSON, for programs")->group(heading);
}

namespace {

std::string UsageText(const CLI::App* app, const CLI::Error& error) {
    const auto words = app->remaining();
    std::string text = error.what();
    if (app->get_subcommands().empty() && !words.empty()) {
        const char* kind = words.front().starts_with('-') ? "option" : "command";
        text = std::string("there is no ") + kind + " '" + words.front() + "'";
    }
    return "zelkctl: " + text + "\nRun with --help for more information.\n";
}

int Run(int argc, char** argv) {
    Options options;
    CLI::App app("Asks a running agent, and looks at what it has on the disk.", "zelkctl");
    app.set_version_flag("--version", ZELKA_VERSION);
    AddCommonOptions(app, options);
    app.require_subcommand(1);
    app.failure_message(UsageText);
    app.fallthrough();
    app.footer(
        "Every command takes --workdir and --json.\n"
        "Exit codes: 0 done, 1 failed, 2 wrong usage, 3 no agent runs there.");
    AddCommands(app, options);
    try {
        app.parse(argc, argv);
        FlushOutput();
        return static_cast<int>(ExitCode::kDone);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? static_cast<int>(ExitCode::kDone)
                                    : static_cast<int>(ExitCode::kUsage);
    } catch (const QuietFailure&) {
        FlushOutput();
        return static_cast<int>(ExitCode::kFailed);
    } catch (const CommandError& error) {
        Tell(error.what());
        return static_cast<int>(error.Code());
    }
}

}  // namespace

int main(int argc, char** argv) {
    PinTextEncoding();
    const wxInitializer framework;
    wxLog::EnableLogging(false);  // what goes wrong is told by the commands
    try {
        return Run(argc, argv);
    } catch (const std::exception& error) {
        Tell(error.what());
        return static_cast<int>(ExitCode::kFailed);
    }
}
