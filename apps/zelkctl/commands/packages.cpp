#include "apps/zelkctl/commands.h"
#include "apps/zelkctl/packages_on_disk.h"
#include "apps/zelkctl/quantity.h"
#include "apps/zelkctl/reply.h"
#include "apps/zelkctl/table.h"
#include "zelka_core/package/package_manifest.h"
#include "zelka_core/package/package_settlement.h"
#include "zelka_core/system/clocks.h"

using ZelkaCore::InstalledPackage;
using ZelkaCore::Json;
using ZelkaCore::PackageTrial;

namespace {

// A package with what there is to tell of it.
struct Row {
    InstalledPackage package;
    std::size_t files = 0;
    const PackageTrial* trial = nullptr;
};

std::string ShownOrDash(const std::string& text) {
    return text.empty() ? kNotTold : Shown(text);
}

Cell TrialCell(const PackageTrial* trial) {
    if (trial == nullptr) {
        return {kNotTold};
    }
    const std::string kept = Shown(trial->older.version) + " is kept; ";
    return {trial->needsStart ? kept + "needs a start"
                              : kept + "start " + std::to_string(trial->failures) + " of " +
                                    std::to_string(ZelkaCore::kMostFailures),
            Tone::kWarning};
}

Json RequirementsOf(const InstalledPackage& package) {
    std::vector<ZelkaCore::PackageRequirement> requirements;
    std::string fault;
    Json list = Json::array();
    if (ZelkaCore::ParseRequirements(package.requirements, requirements, fault)) {
        for (const auto& requirement : requirements) {
            list.push_back(requirement.Text());
        }
    }
    return list;
}

Json ToJson(const Row& row) {
    const InstalledPackage& package = row.package;
    Json json{{"name", package.name},
              {"version", package.version},
              {"installed", package.installed},
              {"archive", package.archive},
              {"signer", package.signer},
              {"files", row.files},
              {"requires", RequirementsOf(package)}};
    if (row.trial != nullptr) {
        json["trial"] = {{"older_version", row.trial->older.version},
                         {"failures", row.trial->failures},
                         {"needs_start", row.trial->needsStart}};
    }
    return json;
}

void PrintRows(const std::vector<Row>& rows) {
    const std::int64_t now = ZelkaCore::TimeNowMillis();
    Table table(
        {"PACKAGE", "VERSION", "INSTALLED", "FILES", "ARCHIVE", "SIGNER", "TRIAL", "REQUIRES"});
    for (const Row& row : rows) {
        const InstalledPackage& package = row.package;
        table.Add({Shown(package.name), Shown(package.version),
                   DurationText(now - package.installed) + " ago", std::to_string(row.files),
                   Shown(package.archive), ShownOrDash(package.signer), TrialCell(row.trial),
                   ShownOrDash(package.requirements)});
    }
    Print(table.Take());
}

void RunPackages(const Options& options) {
    PackagesOnDisk packages(options.workdir);
    const auto trials = packages.Trials();
    std::vector<Row> rows;
    for (const InstalledPackage& package : packages.List()) {
        const auto trial = trials.find(package.name);
        rows.push_back({package, packages.Files(package.name).size(),
                        trial == trials.end() ? nullptr : &trial->second});
    }
    packages.TellUnfinished();
    if (!options.isJson) {
        PrintRows(rows);
        return;
    }
    Json list = Json::array();
    for (const Row& row : rows) {
        list.push_back(ToJson(row));
    }
    PrintJson(Json{{"packages", std::move(list)}});
}

}  // namespace

void AddPackagesCommand(CLI::App& app, const Options& options) {
    app.add_subcommand("packages", "The plug-in packages with a manifest, also without an agent")
        ->callback([&options] { RunPackages(options); });
}
