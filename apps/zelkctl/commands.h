#pragma once

#include "apps/zelkctl/zelkctl.h"

// The commands. Each function adds one to the program: its name, its help, its options and what is
// to be run if it is given, which ends by returning or with a CommandError. `options` outlives the
// program's run.

void AddStatusCommand(CLI::App& app, const Options& options);
void AddTasksCommand(CLI::App& app, const Options& options);
void AddStacksCommand(CLI::App& app, const Options& options);
void AddVarsCommand(CLI::App& app, const Options& options);
void AddSettingsCommand(CLI::App& app, const Options& options);
void AddEventsCommand(CLI::App& app, const Options& options);
void AddLogCommand(CLI::App& app, const Options& options);
// Takes what begins with a minus as an argument, and so has the options of all commands itself.
void AddTraceCommand(CLI::App& app, Options& options);
void AddRunCommand(CLI::App& app, const Options& options);
void AddConsoleCommand(CLI::App& app, const Options& options);
void AddReloadCommand(CLI::App& app, const Options& options);
void AddStopCommand(CLI::App& app, const Options& options);
void AddCheckCommand(CLI::App& app, const Options& options);
void AddDiagnoseCommand(CLI::App& app, const Options& options);
void AddDumpsCommand(CLI::App& app, const Options& options);
void AddPackagesCommand(CLI::App& app, const Options& options);
void AddVerifyCommand(CLI::App& app, const Options& options);
void AddRemoveCommand(CLI::App& app, const Options& options);
void AddPackCommand(CLI::App& app, const Options& options);
void AddSettleCommand(CLI::App& app, const Options& options);
void AddSignCommand(CLI::App& app, const Options& options);
