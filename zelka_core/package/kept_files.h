#pragma once

#include <map>
#include <string>
#include <system_error>
#include <vector>

#include "platform/folder_tree.h"
#include "zelka_core/package/package_records.h"

namespace ZelkaCore {

// Where the files of the program's folder are kept that packages have replaced or removed, as long
// as that may be taken back: below the program's folder, a folder a package. Nothing is copied
// where a file can have a second name. For one thread, and one agent in the folder, at a time.
inline constexpr const char* kKeptFolder = ".zelka-kept";

class KeptFiles {
  public:
    // Comes before everything else.
    [[nodiscard]] std::error_code Open(const std::string& folder);

    // Keeps, for the package, those files of `paths` that are there; what else was kept for it is
    // gone. `owned` are the package's own files, by path. When it succeeds `kept`
    // has them, with their records where the package owns them, and they are on the disk. `path`
    // receives the one that could not be kept.
    [[nodiscard]] std::error_code Keep(const std::string& package,
                                       const std::vector<std::string>& paths,
                                       const std::map<std::string, OwnedFile>& owned,
                                       std::vector<KeptFile>& kept, std::string& path);

    // Puts things back as they were: what is kept into its place, and what is new, and nothing was
    // in its place before, away. `written` are the files that the package has written since, by
    // path, with the checksums that they should have; an empty one allows any. What has been
    // changed meanwhile by somebody else, or cannot be put back, stays, and `left` names it with
    // the reason. Can be repeated after it was interrupted. When it returns, all is on the disk.
    [[nodiscard]] std::error_code PutBack(const std::string& package,
                                          const std::vector<KeptFile>& kept,
                                          const std::map<std::string, std::string>& written,
                                          std::vector<std::string>& left);

    // Deletes files, as far as they are there. What cannot be deleted stays, and `left` names it.
    [[nodiscard]] std::error_code Delete(const std::vector<std::string>& paths,
                                         std::vector<std::string>& left);

    // What is kept for the package goes. What cannot be deleted stays, which harms nothing.
    void Drop(const std::string& package);

    // The checksum of the file at the path, empty if there is nothing; fails for what is no file.
    [[nodiscard]] std::error_code ChecksumAt(const std::string& path, std::string& checksum);

    // Gives a file another name, if it is there.
    [[nodiscard]] std::error_code Rename(const std::string& path, const std::string& to);

    [[nodiscard]] FolderTree& Tree() { return m_tree; }

  private:
    [[nodiscard]] std::error_code BreatheIfFull();
    [[nodiscard]] std::error_code KeepFile(const std::string& package, KeptFile& file);
    [[nodiscard]] std::error_code PutBackFile(const std::string& package, const KeptFile& file);
    bool MayGo(const std::string& path, const std::map<std::string, std::string>& written,
               const std::string& keptSum, std::string& why);

    FolderTree m_tree;
};

}  // namespace ZelkaCore
