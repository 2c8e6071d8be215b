#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "apps/zelkctl/archive_writer.h"
#include "zelka_core/package/package_manifest.h"

// A folder of which a package is to be made. What could not be installed is refused with a
// CommandError that says what and where.
class PackageSource {
  public:
    // Reads its manifest, and what lies in it.
    explicit PackageSource(std::string folder);

    [[nodiscard]] const ZelkaCore::PackageManifest& Manifest() const { return m_manifest; }

    // How many files the package brings.
    [[nodiscard]] std::size_t FileCount() const;

    // Whether a file of that path would lie in the folder.
    [[nodiscard]] bool Holds(const std::string& file) const;

    // Adds all entries in the order of their names: files with the mode 0644, or 0755 if their
    // owner may run them, and the folders in which nothing is. `modified` is the time of all.
    void AddTo(ArchiveWriter& archive, std::time_t modified) const;

  private:
    struct Entry {
        std::string name;  // '/' at the end of a folder's
        std::string path;  // empty for a folder
        unsigned mode = 0;
        std::uint64_t size = 0;  // bytes
    };

    void ReadManifest();
    void ReadEntries();
    void Judge() const;

    std::string m_folder;
    ZelkaCore::PackageManifest m_manifest;
    std::vector<Entry> m_entries;
};
