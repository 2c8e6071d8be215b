#include <algorithm>
#include <memory>
#include <set>

#include "apps/zelkctl/archive_writer.h"
#include "apps/zelkctl/commands.h"
#include "apps/zelkctl/output.h"
#include "apps/zelkctl/package_file_name.h"
#include "apps/zelkctl/packages_on_disk.h"
#include "apps/zelkctl/program_folder.h"
#include "apps/zelkctl/reply.h"
#include "zelka_core/package/package_manifest.h"
#include "zelka_core/package/trust_folder.h"

using ZelkaCore::InstalledPackage;

namespace {

struct Arguments {
    std::string name;
    std::string program;
    bool isForced = false;
};

bool DoesRequire(const InstalledPackage& package, const std::string& name) {
    std::vector<ZelkaCore::PackageRequirement> requirements;
    std::string fault;
    (void)ZelkaCore::ParseRequirements(package.requirements, requirements, fault);
    return std::any_of(requirements.begin(), requirements.end(),
                       [&](const auto& requirement) { return requirement.name == name; });
}

void RefuseIfRequired(const std::vector<InstalledPackage>& packages, const std::string& name) {
    std::string others;
    for (const InstalledPackage& package : packages) {
        if (package.name != name && DoesRequire(package, name)) {
            others += (others.empty() ? "" : ", ") + package.name;
        }
    }
    if (!others.empty()) {
        throw CommandError(name + " is required by " + others +
                           "; --force removes it all the same");
    }
}

// The files of the package; also those of the version before one on trial, which may be back by
// the next start.
std::set<std::string> FilesOf(PackagesOnDisk& packages, const std::string& name) {
    std::set<std::string> files;
    for (const auto& file : packages.Files(name)) {
        files.insert(file.path);
    }
    for (const auto& file : packages.Kept(name)) {
        if (file.record) {
            files.insert(file.path);
        }
    }
    return files;
}

void RunRemove(const Options& options, const Arguments& given) {
    PackagesOnDisk packages(options.workdir);
    const InstalledPackage package = packages.Find(given.name);
    if (!given.isForced) {
        RefuseIfRequired(packages.List(), package.name);
    }
    const auto files = FilesOf(packages, package.name);
    const std::string file = ProgramFolder(options, given.program) + "/" +
                             PackageFileName("Remove", package.name, package.version, ".zku");
    ArchiveWriter archive(file, ArchiveWriter::Kind::kPackage);
    archive.AddText(ZelkaCore::kManifestName,
                    "[package]\nname=" + package.name + "\nversion=" + package.version + "\n");
    for (const std::string& path : files) {
        archive.AddText(path, "");
    }
    archive.Finish();
    const bool needsSignature = ZelkaCore::TrustFolder(ZelkaCore::kTrustFolder).AsksForSignatures();
    if (options.isJson) {
        PrintJson(ZelkaCore::Json{{"file", file},
                                  {"name", package.name},
                                  {"version", package.version},
                                  {"files", files.size()},
                                  {"needs_signature", needsSignature}});
    } else {
        PrintLine(Shown(file) + " is written: the next start of the agent removes " + package.name +
                  " " + package.version + (needsSignature ? ", once this is signed." : "."));
    }
}

}  // namespace

void AddRemoveCommand(CLI::App& app, const Options& options) {
    auto* command =
        app.add_subcommand("remove", "Has the next start of the agent remove a plug-in package");
    auto given = std::make_shared<Arguments>();
    command->add_option("NAME", given->name, "the package")->required();
    command->add_flag("--force", given->isForced, "also if other packages require it");
    AddProgramOption(*command, given->program);
    command->callback([&options, given] { RunRemove(options, *given); });
}
