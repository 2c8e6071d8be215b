#pragma once

#include <sys/types.h>

#include <system_error>

#include "platform/linux/spawn_settings.h"
#include "platform/running_program.h"

// Starts the program that `start` names, with its arguments and its environment; it is looked for
// as posix_spawnp does, if it shall be. Folder, descriptors and group are up to `settings`.
[[nodiscard]] std::error_code StartProgram(SpawnSettings& settings, ProgramStart& start,
                                           pid_t& pid);
