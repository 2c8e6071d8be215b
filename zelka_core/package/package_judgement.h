#pragma once

#include <map>
#include <string>
#include <vector>

#include "zelka_core/package/package_manifest.h"
#include "zelka_core/package/package_records.h"

namespace ZelkaCore {

// What packages find where they are installed, besides each other.
struct PackageHost {
    std::string name;     // of the program, which packages may require
    std::string version;  // of the program
    // Files, and folders with a '/' at the end, below the program's folder that the program
    // consists of: what replaces one of them, or takes it away, shows only after the next start.
    std::vector<std::string> program = {};
    std::string start = {};  // as PackageSettlement::SettleTrials has it
};

// The packages that are installed, and the owners of their files.
struct InstalledPackages {
    std::vector<InstalledPackage> packages;
    std::map<std::string, std::string> owners;

    // The package of that name; null if it is not installed. Lasts as long as `packages` does.
    [[nodiscard]] const InstalledPackage* Find(const std::string& name) const;
};

// Whether a package with that manifest and with files of these paths may be installed: no newer
// version of it is, what it requires is there, and no file of it belongs to another package. If
// not, `fault` says why, fit to follow the archive's name.
bool JudgePackage(const PackageManifest& manifest, const std::vector<std::string>& files,
                  const InstalledPackages& installed, const PackageHost& host, std::string& fault);

}  // namespace ZelkaCore
