#pragma once

#include <cstdint>
#include <cstdio>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "platform/scoped_fd.h"

// Tells a file from another, or another content, that later bears the same name.
struct FileVersion {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::int64_t size = 0;      // bytes
    std::int64_t modified = 0;  // nanoseconds since 1970

    bool operator==(const FileVersion&) const = default;
};

// That of a file that is open.
FileVersion VersionOf(std::FILE* file);
FileVersion VersionOf(const ScopedFd& file);

// What lies below one folder, reached part by part through descriptors, so that nothing outside of
// it is touched, whatever links are put in the way meanwhile. A symbolic link to a folder is
// followed as long as each of its parts stays below the folder, which an absolute one never does;
// PlatformError::kLeavesFolder for the others. Paths are relative to the folder, with '/' between
// parts and without ".."; the empty one is the folder itself. Error codes are those of the
// operating system. For one thread at a time.
class FolderTree {
  public:
    struct Folder {
        ScopedFd fd;
        std::string path;      // without links
        bool touched = false;  // got a new name that is not on the disk yet
        bool staged = false;   // not in its place yet, see Stage
    };
    using FolderPtr = std::shared_ptr<Folder>;

    enum class Kind { kNothing, kFile, kFolder };  // whatever is not a folder is a file

    // Comes before everything else. The folder has to exist.
    [[nodiscard]] std::error_code Open(const std::string& folder);
    [[nodiscard]] bool IsOpen() const { return m_root != nullptr; }
    [[nodiscard]] const FolderPtr& Root() const { return m_root; }

    // The folder at the path, kept open until Forget. `makes` makes what is missing of it, with the
    // usual permissions whatever the process's mask is.
    [[nodiscard]] std::error_code OpenFolder(const std::string& path, bool makes,
                                             FolderPtr& folder);
    // The folder in which a file lies, and the file's name there.
    [[nodiscard]] std::error_code OpenParent(const std::string& path, bool makes, FolderPtr& folder,
                                             std::string& name);

    // From now on a folder that is missing is made under a temporary name, which begins with the
    // prefix, and with all that is put into it gets its own by PlaceFolders; until Forget it is
    // reached by its own. Only so many folders are; when HasManyOpen they are made in their place.
    void Stage(const std::string& prefix);
    // Stops at one that cannot be placed, as where others have put something meanwhile, and
    // `failedPath` names it.
    [[nodiscard]] std::error_code PlaceFolders(std::string& failedPath);
    // Whether there are folders that are not in their places.
    [[nodiscard]] bool HasStaged() const { return !m_staged.empty(); }

    // Closes a place below the folder, and what lies below that, to all that follows:
    // PlatformError::kReservedPlace. The path is absolute; there need not be anything yet, and one
    // that leads elsewhere reserves nothing.
    void Reserve(const std::string& path);

    // What lies at the path, a link there not followed unless a '/' ends the path, and in `place`
    // the path to it without links. ENOTDIR if something else is where a folder is needed.
    [[nodiscard]] std::error_code Look(const std::string& path, Kind& kind, std::string& place);

    // Deletes a file or a link. What is gone already is no failure, and a folder stays: EISDIR.
    [[nodiscard]] std::error_code DeleteFile(const std::string& path);

    // Opens a file for reading. A link there is not followed: ELOOP; what is no regular file is
    // PlatformError::kNotRegularFile.
    [[nodiscard]] std::error_code OpenFile(const std::string& path, ScopedFd& file);

    // Gives the file or link at `path` the further name `to`, over what has it, at once; where the
    // file system cannot do so a copy of the file gets it, which is on the disk then. Missing
    // folders above `to` are made. In between it is called `temporary` there.
    [[nodiscard]] std::error_code ShareFile(const std::string& path, const std::string& to,
                                            const std::string& temporary);

    // Deletes a folder and the files in it. What is gone already is no failure.
    [[nodiscard]] std::error_code DeleteFolder(const std::string& path);

    // Gives the file `name` of the folder itself the name `to`, over what has that name, or deletes
    // it, by way of the name `aside`; but only if it is the given version: else it stays, and
    // PlatformError::kReplaced.
    [[nodiscard]] std::error_code RenameIf(const FileVersion& version, const std::string& name,
                                           const std::string& to);
    [[nodiscard]] std::error_code DeleteIf(const FileVersion& version, const std::string& name,
                                           const std::string& aside);

    // Whether it is time to Forget the folders that are kept open, which closes them, and the wait
    // until the new names in them are on the disk.
    [[nodiscard]] bool HasManyOpen() const;
    void Forget();
    [[nodiscard]] std::error_code SyncFolders();
    // The same for everything on the file systems of these folders; none of them is touched then.
    [[nodiscard]] std::error_code SyncFileSystems();

  private:
    class Walk;
    // A folder that is not in its place, in one that is.
    struct Staged {
        FolderPtr parent;
        std::string temporaryName;
        FolderPtr folder;
    };

    [[nodiscard]] bool IsReserved(const std::string& place) const;

    std::string m_name;  // of the folder
    FolderPtr m_root;
    std::vector<std::string> m_reserved;         // places
    std::map<std::string, FolderPtr> m_folders;  // that are kept open, by their paths
    bool m_touchedOthers = false;                // folders that are not kept open
    std::string m_stagePrefix;                   // empty: nothing is staged
    std::size_t m_stageCount = 0;
    std::deque<Staged> m_staged;
    std::string m_missing;  // nothing was there when Look was asked last, and only Look since
};
