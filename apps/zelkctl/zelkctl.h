#pragma once

#include <CLI/CLI.hpp>
#include <stdexcept>
#include <string>

// What the commands of zelkctl share.

// How the process ends.
enum class ExitCode { kDone = 0, kFailed = 1, kUsage = 2, kNoAgent = 3 };

// Ends a command: the text goes to standard error, the code is the process's.
class CommandError : public std::runtime_error {
  public:
    explicit CommandError(const std::string& text, ExitCode code = ExitCode::kFailed)
        : std::runtime_error(text), m_code(code) {}

    [[nodiscard]] ExitCode Code() const { return m_code; }

  private:
    ExitCode m_code;
};

// A failure that has been told already.
class QuietFailure : public CommandError {
  public:
    QuietFailure() : CommandError("") {}
};

// The options of all commands. Constant once a command runs.
struct Options {
    std::string workdir = "/var/lib/zelk_agent";  // of the agent, that of the service by default
    bool isJson = false;                          // for programs, and not for people
};

// The options of all commands, under that heading of the help; none: they are not shown.
void AddCommonOptions(CLI::App& app, Options& options, const std::string& heading = "Options");
