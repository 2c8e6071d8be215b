#include "platform/linux/program_search.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/error.h"

namespace {

constexpr std::string_view kPath = "PATH=";
constexpr std::string_view kDefaultPath = "/bin:/usr/bin";  // as the C library has it

std::string SearchPath(const ProgramStart& start) {
    if (start.environment) {
        for (const std::string& variable : *start.environment) {
            if (variable.starts_with(kPath)) {
                return variable.substr(kPath.size());
            }
        }
    }
    const char* path = std::getenv("PATH");
    return path == nullptr ? std::string(kDefaultPath) : std::string(path);
}

// Whether the search goes on behind a file that could not be started.
bool IsPassedOver(const std::error_code& error) {
    return error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory ||
           error == std::errc::permission_denied;
}

// The next place of the list, which is empty for the current folder. Moves `begin` behind it.
std::string_view NextPlace(std::string_view path, std::size_t& begin) {
    const std::size_t end = std::min(path.find(':', begin), path.size());
    return path.substr(std::exchange(begin, end + 1), end - begin);
}

}  // namespace

std::error_code StartProgram(SpawnSettings& settings, ProgramStart& start, pid_t& pid) {
    const std::vector<char*> arguments = PointersTo(start.arguments);
    std::vector<char*> variables;
    if (start.environment) {
        variables = PointersTo(*start.environment);
    }
    char* const* const environment = start.environment ? variables.data() : environ;
    const std::string& name = start.arguments.front();
    if (!start.isSearched || name.find('/') != std::string::npos) {
        return settings.Start(pid, name, arguments, environment);
    }
    const int folder = start.folder.IsOpen() ? start.folder.Get() : AT_FDCWD;
    auto error = std::make_error_code(std::errc::no_such_file_or_directory);
    const std::string path = SearchPath(start);
    for (std::size_t begin = 0; begin <= path.size();) {
        std::string candidate(NextPlace(path, begin));
        candidate += candidate.empty() ? "" : "/";
        candidate += name;
        // A look is much cheaper than an attempt.
        const bool isThere = faccessat(folder, candidate.c_str(), X_OK, AT_EACCESS) == 0;
        const auto failed =
            isThere ? settings.Start(pid, candidate, arguments, environment) : LastSystemError();
        if (isThere && !IsPassedOver(failed)) {
            return failed;
        }
        error = failed == std::errc::permission_denied ? failed : error;
    }
    return error;
}
