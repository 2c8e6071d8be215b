#include <memory>

#include "apps/zelkctl/commands.h"
#include "apps/zelkctl/packages_on_disk.h"
#include "apps/zelkctl/program_folder.h"
#include "apps/zelkctl/reply.h"
#include "apps/zelkctl/table.h"
#include "apps/zelkctl/verification.h"

using ZelkaCore::Json;

namespace {

struct Arguments {
    std::string name;
    std::string program;
};

struct Count {
    std::size_t packages = 0;
    std::size_t files = 0;
};

void PrintFound(const std::vector<Difference>& differences, const Count& count) {
    if (differences.empty()) {
        PrintLine("Nothing differs; packages: " + std::to_string(count.packages) +
                  ", files: " + std::to_string(count.files) + ".");
        return;
    }
    Table table({"FILE", "PACKAGE", "DIFFERENCE", ""});
    for (const Difference& difference : differences) {
        const std::string package = difference.package.empty() ? kNotTold : difference.package;
        table.Add({Shown(difference.path), Shown(package), Cell(difference.kind, Tone::kBad),
                   Shown(difference.detail)});
    }
    Print(table.Take());
}

void PrintFoundAsJson(const std::vector<Difference>& differences, const Count& count) {
    Json list = Json::array();
    for (const Difference& difference : differences) {
        list.push_back(Json{{"path", difference.path},
                            {"package", difference.package},
                            {"difference", difference.kind},
                            {"detail", difference.detail}});
    }
    PrintJson(Json{
        {"packages", count.packages}, {"files", count.files}, {"differences", std::move(list)}});
}

void RunVerify(const Options& options, const Arguments& given) {
    PackagesOnDisk packages(options.workdir);
    std::vector<ZelkaCore::InstalledPackage> checked;
    if (given.name.empty()) {
        checked = packages.List();
    } else {
        checked.push_back(packages.Find(given.name));
    }
    packages.TellUnfinished();
    Verification verification(ProgramFolder(options, given.program));
    Count count{.packages = checked.size()};
    for (const auto& package : checked) {
        const auto files = packages.Files(package.name);
        count.files += files.size();
        verification.Check(package.name, files);
    }
    verification.FindForeign(packages.Owners(), given.name);
    (options.isJson ? PrintFoundAsJson : PrintFound)(verification.Differences(), count);
    if (!verification.Differences().empty()) {
        throw QuietFailure();
    }
}

}  // namespace

void AddVerifyCommand(CLI::App& app, const Options& options) {
    auto* command = app.add_subcommand(
        "verify", "Compares the files of plug-in packages with what was installed");
    auto given = std::make_shared<Arguments>();
    command->add_option("NAME", given->name, "the package; all of them without a name");
    AddProgramOption(*command, given->program);
    command->callback([&options, given] { RunVerify(options, *given); });
}
