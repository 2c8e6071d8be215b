#include "platform/linux/spawn_settings.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>

namespace {

std::error_code ErrorOf(int code) {
    return {code, std::generic_category()};
}

int Redirect(posix_spawn_file_actions_t& actions, int from, int to) {
    if (from == SpawnSettings::kNullDevice) {
        return posix_spawn_file_actions_addopen(&actions, to, "/dev/null", O_RDWR, 0);
    }
    return from == to ? 0 : posix_spawn_file_actions_adddup2(&actions, from, to);
}

}  // namespace

SpawnSettings::SpawnSettings() {
    (void)posix_spawn_file_actions_init(&m_actions);
    (void)posix_spawnattr_init(&m_attributes);
}

SpawnSettings::~SpawnSettings() {
    (void)posix_spawnattr_destroy(&m_attributes);
    (void)posix_spawn_file_actions_destroy(&m_actions);
}

std::error_code SpawnSettings::UseDescriptors(int input, int output, int errors) {
    const std::array codes{Redirect(m_actions, input, STDIN_FILENO),
                           Redirect(m_actions, output, STDOUT_FILENO),
                           Redirect(m_actions, errors, STDERR_FILENO),
                           posix_spawn_file_actions_addclosefrom_np(&m_actions, STDERR_FILENO + 1)};
    return ErrorOf(*std::max_element(codes.begin(), codes.end()));
}

std::error_code SpawnSettings::UseFolder(int folder) {
    return ErrorOf(posix_spawn_file_actions_addfchdir_np(&m_actions, folder));
}

std::error_code SpawnSettings::UseOwnGroup() {
    m_flags |= POSIX_SPAWN_SETPGROUP;
    return ErrorOf(posix_spawnattr_setpgroup(&m_attributes, 0));
}

std::error_code SpawnSettings::Start(pid_t& pid, const std::string& path,
                                     const std::vector<char*>& arguments,
                                     char* const* environment) {
    sigset_t none;
    sigset_t all;
    (void)sigemptyset(&none);
    (void)sigfillset(&all);
    (void)posix_spawnattr_setsigmask(&m_attributes, &none);
    (void)posix_spawnattr_setsigdefault(&m_attributes, &all);
    if (const int code = posix_spawnattr_setflags(&m_attributes, m_flags)) {
        return ErrorOf(code);
    }
    return ErrorOf(
        posix_spawn(&pid, path.c_str(), &m_actions, &m_attributes, arguments.data(), environment));
}

std::vector<char*> PointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}
