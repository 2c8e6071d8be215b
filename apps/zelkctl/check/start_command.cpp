#include "apps/zelkctl/check/start_command.h"

#include <filesystem>
#include <sstream>

#include "apps/start/configuration.h"
#include "platform/service.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kWorkdirs = "/var/lib";  // of the services
constexpr const char* kSuffix = ".service";

bool IsService(const fs::path& workdir) {
    return workdir == fs::path(kWorkdirs) / kDefaultApplication;
}

// The unit of a service or of an instance; empty if there is none for the folder.
std::string UnitOf(const fs::path& workdir) {
    const std::string application = kDefaultApplication;
    const std::string instance = application + "-";
    const std::string name = workdir.filename().string();
    if (IsService(workdir)) {
        return application + kSuffix;
    }
    return workdir.parent_path() == kWorkdirs && name.starts_with(instance) &&
                   name.size() > instance.size()
               ? application + "@" + name.substr(instance.size()) + kSuffix
               : "";
}

fs::path Absolute(const std::string& workdir) {
    fs::path path = fs::absolute(workdir).lexically_normal();
    return path.has_filename() ? path : path.parent_path();
}

}  // namespace

StartCommand GivenCommand(const std::vector<std::string>& words, const std::string& agent,
                          const std::string& workdir) {
    StartCommand command;
    const bool hasProgram = !words.empty() && !words.front().starts_with('-');
    command.words = {hasProgram ? words.front() : agent};
    // Of an option that is given twice the last counts.
    command.words.insert(command.words.end(), {"--workdir", workdir});
    command.words.insert(command.words.end(), words.begin() + (hasProgram ? 1 : 0), words.end());
    return command;
}

StartCommand ServiceCommand(const std::string& agent, const std::string& workdir) {
    const fs::path folder = Absolute(workdir);
    StartCommand command;
    command.unit = UnitOf(folder);
    if (!command.unit.empty() && !ReadServiceCommand(command.unit, command.words)) {
        return command;
    }
    command.isAssumed = true;
    command.words = {agent};
    std::istringstream options(command.unit.empty() || IsService(folder) ? SERVICE_OPTIONS
                                                                         : INSTANCE_OPTIONS);
    for (std::string word; options >> word;) {
        command.words.push_back(word);
    }
    command.words.insert(command.words.end(), {"--workdir", folder.string()});
    return command;
}
