#include "apps/zelkctl/program_folder.h"

#include <filesystem>

#include "apps/zelkctl/agent.h"
#include "apps/zelkctl/reply.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kInstalled = "/opt/Orvane/Agent";
constexpr const char* kService = "/var/lib/zelk_agent";

bool IsOfInstalledService(const std::string& workdir) {
    std::string path = fs::path(workdir).lexically_normal().string();
    if (path.ends_with('/')) {
        path.pop_back();
    }
    return path == kService || path.starts_with(std::string(kService) + "-");
}

}  // namespace

void AddProgramOption(CLI::App& command, std::string& program) {
    command.add_option("--program", program, "the folder in which the agent's program lies")
        ->type_name("FOLDER");
}

std::string ProgramFolder(const Options& options, const std::string& named) {
    if (!named.empty()) {
        return (fs::absolute(named) / "").lexically_normal().parent_path().string();
    }
    if (IsOfInstalledService(options.workdir)) {
        return kInstalled;
    }
    try {
        const auto reply = Agent(options.workdir).Call("GetStatus");
        const auto& process = MemberPart(MemberPart(reply, "status"), "process");
        return fs::path(RawMember(process, "program")).parent_path().string();
    } catch (const CommandError& error) {
        throw CommandError(std::string(error.what()) + "; name the program's folder with --program",
                           error.Code());
    }
}
