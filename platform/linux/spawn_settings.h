#pragma once

#include <spawn.h>
#include <sys/types.h>

#include <string>
#include <system_error>
#include <vector>

// How a program is started: with which descriptors, where, and with which signal settings. Every
// child of this process begins without a blocked signal, with default dispositions, and with no
// descriptor but the three that it is given.
class SpawnSettings {
  public:
    static constexpr int kNullDevice = -1;

    SpawnSettings();
    ~SpawnSettings();
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    // The folder in which it starts. Before UseDescriptors().
    [[nodiscard]] std::error_code UseFolder(int folder);

    // It leads a process group of its own.
    [[nodiscard]] std::error_code UseOwnGroup();

    // What become the standard descriptors; each may stay what it is here.
    [[nodiscard]] std::error_code UseDescriptors(int input, int output, int errors);

    // Starts the program that lies at `path`. The first of the arguments is its name; they and the
    // environment end with a null pointer.
    [[nodiscard]] std::error_code Start(pid_t& pid, const std::string& path,
                                        const std::vector<char*>& arguments,
                                        char* const* environment);

  private:
    posix_spawn_file_actions_t m_actions = {};
    posix_spawnattr_t m_attributes = {};
    short m_flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
};

// Pointers to the texts, with a null pointer behind them: they live as long as the texts.
std::vector<char*> PointersTo(std::vector<std::string>& texts);
