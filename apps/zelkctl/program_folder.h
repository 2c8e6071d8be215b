#pragma once

#include <string>

#include "apps/zelkctl/zelkctl.h"

// The option that names the folder in which the agent's program lies.
void AddProgramOption(CLI::App& command, std::string& program);

// That folder: the one that is named; else that of the installed package, if the working folder is
// of one of its services; else the one that the running agent tells. A CommandError if none of
// these is to be had.
std::string ProgramFolder(const Options& options, const std::string& named);
