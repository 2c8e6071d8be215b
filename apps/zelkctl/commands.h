#pragma once

#include "apps/zelkctl/zelkctl.h"

// The commands. Each function adds one to the program: its name, its help, its options and what is
// to be run if it is given, which ends by returning or with a CommandError. `options` outlives the
// program's run.

void AddDumps(CLI::App& app, const Options& options);
