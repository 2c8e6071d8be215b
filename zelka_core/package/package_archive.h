#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "zelka_core/package/package_manifest.h"

namespace ZelkaCore {

class ZipArchive;

// What a manifest has at most, in bytes.
inline constexpr std::size_t kLargestManifest = 0x10000;

// Reads the manifest of an archive whose entries have these paths, in the order of its directory,
// if it has one. False leaves `manifest` alone, with the reason in `fault`.
bool ReadManifest(ZipArchive& archive, const std::vector<std::string>& paths,
                  std::optional<PackageManifest>& manifest, std::string& fault);

// The places of an archive's files, without the manifest, sorted; `places` are those of all its
// entries.
std::vector<std::string> FilesOf(const ZipArchive& archive, const std::vector<std::string>& places);

// The manifest of the archive in a file; none also if it is no package that could be installed.
std::optional<PackageManifest> ManifestOf(const std::string& file);

}  // namespace ZelkaCore
