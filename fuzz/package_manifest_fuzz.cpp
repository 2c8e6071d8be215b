#include "zelka_core/package/package_manifest.h"

#include <string>

#include "fuzz/fuzz_target.h"
#include "zelka_core/package/version_order.h"

using ZelkaCore::PackageManifest;

// What is no manifest has a reason and changes nothing. What is one has a name and a version that
// are such, and says the same when it is written down anew.
void RunOnInput(std::string_view input) {
    PackageManifest manifest{.name = "untouched", .version = "", .requirements = {}};
    std::string fault;
    if (!ParseManifest(input, manifest, fault)) {
        Require(!fault.empty() && manifest.name == "untouched");
        return;
    }
    Require(ZelkaCore::IsPackageName(manifest.name) && ZelkaCore::IsVersion(manifest.version));
    for (const auto& requirement : manifest.requirements) {
        Require(ZelkaCore::IsPackageName(requirement.name) &&
                requirement.version.empty() ==
                    (requirement.relation == ZelkaCore::PackageRequirement::Relation::kAny));
    }
    const std::string requirements = RequirementsText(manifest.requirements);
    PackageManifest again;
    Require(ParseManifest("[package]\nname=" + manifest.name + "\nversion=" + manifest.version +
                              "\nrequires=" + requirements,
                          again, fault));
    Require(again.name == manifest.name && again.version == manifest.version &&
            RequirementsText(again.requirements) == requirements);
}
