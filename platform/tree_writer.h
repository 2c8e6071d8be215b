#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "platform/folder_tree.h"
#include "platform/scoped_fd.h"

// Writes files below one folder such that nothing lands outside of it (FolderTree), and that every
// target is the old file or the new one, whole, also after a power cut.
//
// A file is written under a temporary name in the folder that it is for. Commit brings a batch of
// such files to the disk and then renames each over its target, so the disk is waited for once a
// batch, not once a file. Paths are those of FolderTree. For one thread at a time.
class TreeWriter {
  public:
    TreeWriter() = default;
    // Drops what is not committed.
    ~TreeWriter();
    TreeWriter(const TreeWriter&) = delete;
    TreeWriter& operator=(const TreeWriter&) = delete;

    // Comes before everything else. The folder has to exist. The names of temporary files begin
    // with `temporaryPrefix`.
    [[nodiscard]] std::error_code Open(const std::string& folder,
                                       const std::string& temporaryPrefix);

    [[nodiscard]] FolderTree& Tree() { return m_tree; }

    // What may be taken of the folder's file system: what is free for this process, less a reserve
    // for others, which is a twentieth of the whole, at least 64 MiB, but never more than a
    // quarter.
    struct Room {
        std::uint64_t blockSize = 1;  // a file takes whole ones
        std::uint64_t bytes = 0;
        std::uint64_t files = 0;  // the largest number where they are not counted
    };
    [[nodiscard]] Room RoomLeft() const;

    // Makes the folder, and those missing above it, which get the usual permissions. An existing
    // one keeps its own.
    [[nodiscard]] std::error_code MakeFolder(const std::string& path, unsigned permissions);

    // One file: begun, written in pieces, and then finished or dropped. Missing folders above it
    // are made. Without permissions it gets those of the file that it replaces, or the usual ones;
    // `given`, if it is not null, receives what it got. A failed Begin or Finish has dropped the file.
    [[nodiscard]] std::error_code BeginFile(const std::string& path);
    [[nodiscard]] std::error_code WriteFile(std::string_view bytes);
    [[nodiscard]] std::error_code FinishFile(std::optional<unsigned> permissions,
                                             unsigned* given = nullptr);
    void DropFile();

    // True when it is time to Commit: finished files hold memory and their folders descriptors.
    [[nodiscard]] bool IsBatchFull() const;

    // Puts all finished files in place, in the order in which they were finished. At the first that
    // cannot be put there, the others are dropped, and `failedPath` names it; it is empty if the
    // disk failed.
    [[nodiscard]] std::error_code Commit(std::string& failedPath);

  private:
    struct File {
        FolderTree::FolderPtr folder;
        std::string path;
        std::string name;  // in the folder
        std::string temporaryName;
        ScopedFd fd;
    };

    void DropFinished(std::size_t first);
    [[nodiscard]] std::error_code SyncFiles() const;

    FolderTree m_tree;
    std::string m_temporaryPrefix;
    std::uint64_t m_temporaryCount = 0;

    File m_file;                   // the one begun, if its folder is set
    std::vector<File> m_finished;  // the batch
};

// Removes the temporary files that killed processes have left in the folder or anywhere below it,
// at any depth and without following links: those whose names begin with the prefix. Nobody may be
// at work on the folder meanwhile. What cannot be removed stays, and the first error is returned.
[[nodiscard]] std::error_code RemoveTemporaryFilesBelow(const std::string& folder,
                                                        const std::string& temporaryPrefix);
