#include "zelka_core/package/package_judgement.h"

#include <algorithm>
#include <compare>

#include "zelka_core/archive/shown_name.h"
#include "zelka_core/package/version_order.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

bool JudgeRequirements(const PackageManifest& manifest, const InstalledPackages& installed,
                       const PackageHost& host, std::string& fault) {
    for (const PackageRequirement& requirement : manifest.requirements) {
        const InstalledPackage* package = installed.Find(requirement.name);
        const bool isHost = requirement.name == host.name;
        const std::string offered = isHost               ? host.version
                                    : package != nullptr ? package->version
                                                         : "";
        if (offered.empty()) {
            fault = "requires " + requirement.Text() + ", which is not installed";
            return false;
        }
        if (!requirement.IsMetBy(offered)) {
            fault = "requires " + requirement.Text() + ", and " + offered + " is installed";
            return false;
        }
    }
    return true;
}

bool JudgeOwners(const std::string& package, const std::vector<std::string>& files,
                 const std::map<std::string, std::string>& owners, std::string& fault) {
    for (const std::string& file : files) {
        const auto owner = owners.find(file);
        if (owner != owners.end() && owner->second != package) {
            fault = "holds '" + ToUtf8(ShownName(FromUtf8(file))) +
                    "', which belongs to the package " + owner->second;
            return false;
        }
    }
    return true;
}

}  // namespace

const InstalledPackage* InstalledPackages::Find(const std::string& name) const {
    const auto found =
        std::find_if(packages.begin(), packages.end(),
                     [&](const InstalledPackage& package) { return package.name == name; });
    return found == packages.end() ? nullptr : &*found;
}

bool JudgePackage(const PackageManifest& manifest, const std::vector<std::string>& files,
                  const InstalledPackages& installed, const PackageHost& host, std::string& fault) {
    const InstalledPackage* older = installed.Find(manifest.name);
    if (older != nullptr && std::is_lt(CompareVersions(manifest.version, older->version))) {
        fault = "is " + manifest.name + " " + manifest.version + ", older than " + older->version +
                ", which is installed and has to be removed first";
        return false;
    }
    return JudgeRequirements(manifest, installed, host, fault) &&
           JudgeOwners(manifest.name, files, installed.owners, fault);
}

}  // namespace ZelkaCore
