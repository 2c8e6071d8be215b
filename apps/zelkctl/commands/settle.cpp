// `zelkctl settle`: what the agent does with packages at its start, for the unit to have it done
// before, by a copy of zelkctl that no package reaches: an agent that was replaced by one which
// cannot run is taken back all the same.

#include <chrono>
#include <filesystem>
#include <memory>

#include "apps/zelkctl/commands.h"
#include "apps/zelkctl/output.h"
#include "apps/zelkctl/packages_on_disk.h"
#include "apps/zelkctl/program_folder.h"
#include "apps/zelkctl/reply.h"
#include "platform/lock_file.h"
#include "platform/service.h"
#include "zelka_core/log/journal.h"
#include "zelka_core/package/package_settlement.h"

using ZelkaCore::PackageSettlement;

namespace {

// For an agent that works on the packages. It settles them itself, and a start waits for this.
constexpr std::chrono::seconds kPatience{60};

// Whether something is unfinished, or on trial while this is a start. What cannot be told has told
// why.
bool HasWork(ZelkaCore::PackageRecords& records, const std::string& start) {
    std::map<std::string, std::string> changes;
    std::map<std::string, ZelkaCore::PackageTrial> trials;
    if (!records.Unfinished(changes) || !records.Trials(trials)) {
        throw QuietFailure();
    }
    return !changes.empty() || (!start.empty() && !trials.empty());
}

void TakeLock(LockFile& lock, const std::string& folder) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    const auto wait = [&] {
        if (std::chrono::steady_clock::now() >= end) {
            throw CommandError(folder + ": an agent works on the packages, and has not ended");
        }
    };
    const std::string path = folder + "/" + ZelkaCore::kPackagesLock;
    if (const auto error = lock.Take(path, wait)) {
        throw CommandError(path + ": " + error.message());
    }
}

// True if nothing is left to be settled. What there is to tell of it is added to `notes`.
bool Settle(const Options& options, const std::string& program, std::vector<std::string>& notes) {
    const std::string file = DatabaseFileOf(options.workdir);
    std::error_code missing;
    if (!std::filesystem::exists(file, missing)) {
        return true;
    }
    const ToldLog log;
    ZelkaCore::AgentDatabase database(file, ZelkaCore::SqliteTuning());
    PackageSettlement settlement(database);
    const std::string start = NameOfServiceStart();
    if (!HasWork(settlement.Records(), start)) {
        return true;
    }
    if (!start.empty()) {
        // Which application the agent will have is not known yet.
        ZelkaCore::UseJournal("zelkctl", options.workdir);
    }
    const std::string folder = ProgramFolder(options, program);
    LockFile lock;
    TakeLock(lock, folder);
    if (!settlement.Open(folder, notes)) {
        return false;
    }
    const bool areChangesSettled = settlement.SettleChanges(notes);
    return (start.empty() || settlement.SettleTrials(start, notes)) && areChangesSettled;
}

void RunSettle(const Options& options, const std::string& program) {
    std::vector<std::string> notes;
    const bool isSettled = Settle(options, program, notes);
    for (const std::string& note : notes) {
        Tell(Shown(note));
    }
    if (options.isJson) {
        PrintJson(ZelkaCore::Json{{"settled", isSettled}, {"notes", notes}});
    }
    if (!isSettled) {
        throw QuietFailure();
    }
}

}  // namespace

void AddSettleCommand(CLI::App& app, const Options& options) {
    auto* command = app.add_subcommand(
        "settle",
        "Takes back packages as a start of the agent does, which its unit has done first");
    auto program = std::make_shared<std::string>();
    AddProgramOption(*command, *program);
    command->callback([&options, program] { RunSettle(options, *program); });
}
