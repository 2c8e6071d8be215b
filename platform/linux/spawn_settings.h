#pragma once

#include <spawn.h>
#include <sys/types.h>

#include <string>
#include <system_error>
#include <vector>

// How a program is started: with which descriptors and which signal settings. Every child of this
// process begins without a blocked signal, with default dispositions, and with no descriptor but
// the three that it is given.
class SpawnSettings {
  public:
    static constexpr int kNullDevice = -1;

    SpawnSettings();
    ~SpawnSettings();
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    // What become the standard descriptors; each may stay what it is here.
    [[nodiscard]] std::error_code UseDescriptors(int input, int output, int errors);

    // Starts the program under its own path as name, in front of the arguments.
    [[nodiscard]] std::error_code Start(pid_t& pid, const std::string& program,
                                        std::vector<std::string> arguments);

  private:
    posix_spawn_file_actions_t m_actions = {};
    posix_spawnattr_t m_attributes = {};
};
