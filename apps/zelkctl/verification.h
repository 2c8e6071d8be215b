#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/folder_tree.h"
#include "zelka_core/package/package_records.h"

// How a file differs from what is on record.
struct Difference {
    std::string path;     // below the program's folder
    std::string package;  // empty: nobody's
    std::string kind;     // "missing", "changed", "mode", "foreign" or "unreadable"
    std::string detail;   // of it, in words; may be empty
};

// Compares the files in the program's folder with what is on record of packages. Changes nothing.
class Verification {
  public:
    // A CommandError if there is no such folder.
    explicit Verification(const std::string& folder);

    // The files that a package owns.
    void Check(const std::string& package, const std::vector<ZelkaCore::OwnedFile>& files);

    // Files that are nobody's, by the owners of all that have one, in the folders in which the
    // package has files, or any package if the name is empty. The program's folder itself, lib and
    // zelka_core are left out: others than packages have files there.
    void FindForeign(const std::map<std::string, std::string>& owners, const std::string& package);

    // What was found, in the order in which it was.
    [[nodiscard]] const std::vector<Difference>& Differences() const { return m_differences; }

  private:
    void FindForeignIn(const std::string& folder, const std::map<std::string, std::string>& owners);
    void CheckFile(const std::string& package, const ZelkaCore::OwnedFile& file);
    void CheckContent(const std::string& package, const ZelkaCore::OwnedFile& file);
    void CheckMode(const std::string& package, const ZelkaCore::OwnedFile& file);

    std::string m_folder;
    FolderTree m_tree;
    std::vector<Difference> m_differences;
};
