#include "zelka_core/package/package_archive.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "zelka_core/archive/package_check.h"
#include "zelka_core/archive/zip_archive.h"

namespace ZelkaCore {

bool ReadManifest(ZipArchive& archive, const std::vector<std::string>& paths,
                  std::optional<PackageManifest>& manifest, std::string& fault) {
    const auto path = std::find(paths.begin(), paths.end(), kManifestName);
    if (path == paths.end()) {
        return true;
    }
    const ZipEntry& entry = archive.Entries()[static_cast<std::size_t>(path - paths.begin())];
    std::string text;
    PackageManifest found;
    const auto take = [&](std::string_view bytes) {
        text += bytes;
        return true;
    };
    std::string reason;
    if (entry.size > kLargestManifest) {
        reason = "is larger than 64 KiB";
    } else if (archive.Read(entry, take, reason)) {
        (void)ParseManifest(text, found, reason);
    }
    if (!reason.empty()) {
        fault = std::string(kManifestName) + ": " + reason;
        return false;
    }
    manifest = std::move(found);
    return true;
}

std::vector<std::string> FilesOf(const ZipArchive& archive,
                                 const std::vector<std::string>& places) {
    std::vector<std::string> files;
    for (std::size_t i = 0; i < places.size(); ++i) {
        if (!archive.Entries()[i].IsFolder() && places[i] != kManifestName) {
            files.push_back(places[i]);
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::optional<PackageManifest> ManifestOf(const std::string& file) {
    ZipArchive archive;
    std::vector<std::string> paths;
    std::optional<PackageManifest> manifest;
    std::string fault;
    if (archive.Open(file, fault) && CheckPackage(archive.Entries(), paths, fault)) {
        (void)ReadManifest(archive, paths, manifest, fault);
    }
    return manifest;
}

}  // namespace ZelkaCore
