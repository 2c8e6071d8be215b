#pragma once

#include <string>
#include <system_error>

#include "platform/file.h"

// Commands of the shell, for scripts that start them as their standard library has it. A command
// begins as a fresh process does: no signal blocked, every disposition the default, and no
// descriptor but the standard ones.

// Whether there is a shell.
bool HasShell();

// Runs a command and waits for it. SIGINT and SIGQUIT end the command and not this process
// meanwhile. `status` is what waitpid() gives. One thread at a time.
[[nodiscard]] std::error_code RunShell(const std::string& command, int& status);

// Starts a command whose standard output is read, or whose standard input is written, through
// `stream`. The caller closes that first and then collects the process `pid`.
enum class ShellPipe { kRead, kWrite };
[[nodiscard]] std::error_code OpenShell(const std::string& command, ShellPipe direction,
                                        FileStream& stream, unsigned long& pid);

// Waits for the end of such a process. `status` is what waitpid() gives.
[[nodiscard]] std::error_code CollectShell(unsigned long pid, int& status);
