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
    AddDiagnoseCommand(app, options);
    AddDumpsCommand(app, options);
    AddSignCommand(app, options);
}

}  // namespace

void AddCommonOptions(CLI::App& app, Options& options) {
    app.add_option("--workdir", options.workdir, "the working folder of the agent")
        ->capture_default_str()
        ->type_name("FOLDER");
    app.add_flag("--json", options.isJson, "print JSON, for programs");
}

namespace {

int Run(int argc, char** argv) {
    Options options;
    CLI::App app("Asks a running agent, and looks at what it has on the disk.", "zelkctl");
    app.set_version_flag("--version", ZELKA_VERSION);
    AddCommonOptions(app, options);
    app.require_subcommand(1);
    app.fallthrough();
    app.footer("Exit codes: 0 done, 1 failed, 2 wrong usage, 3 no agent runs there.");
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
