#include <memory>

#include "apps/zelkctl/commands.h"
#include "apps/zelkctl/diagnosis.h"
#include "apps/zelkctl/output.h"
#include "apps/zelkctl/reply.h"

namespace {

struct Arguments {
    std::string file;
    bool hasDumps = false;
};

void RunDiagnose(const Options& options, const Arguments& given) {
    Diagnosis diagnosis(options.workdir, given.file);
    diagnosis.AddAgent();
    diagnosis.AddLogs();
    diagnosis.AddIniFiles();
    diagnosis.AddUnit();
    diagnosis.AddSystem();
    if (given.hasDumps) {
        diagnosis.AddDumps();
    }
    diagnosis.Finish();
    if (options.isJson) {
        PrintJson(ZelkaCore::Json{{"file", given.file}, {"missing", diagnosis.Missing()}});
        return;
    }
    PrintLine(Shown(given.file) + " is written.");
    for (const std::string& missing : diagnosis.Missing()) {
        PrintLine("missing: " + missing);
    }
}

}  // namespace

void AddDiagnoseCommand(CLI::App& app, const Options& options) {
    auto* command = app.add_subcommand(
        "diagnose", "One archive with all that is to be known of an agent, to send to its maker");
    auto given = std::make_shared<Arguments>();
    command->add_option("FILE.zip", given->file, "the archive")->type_name("")->required();
    command->add_flag("--dumps", given->hasDumps, "with crash dumps, which hold its memory");
    command->callback([&options, given] { RunDiagnose(options, *given); });
}
