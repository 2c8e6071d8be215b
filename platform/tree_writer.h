#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "platform/scoped_fd.h"

// Writes files below one folder such that nothing lands outside of it, whatever links are put in
// the way meanwhile, and that every target is the old file or the new one, whole, also after a
// power cut.
//
// A file is written under a temporary name in the folder that it is for. Commit brings a batch of
// such files to the disk and then renames each over its target, so the disk is waited for once a
// batch, not once a file. Paths are relative to the folder, with '/' between parts, without "." or
// ".." or empty ones. Error codes are those of the operating system. For one thread at a time.
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

    // What the folder's file system has left for this process, in bytes.
    [[nodiscard]] std::uint64_t FreeBytes() const;

    // The first part of `path` that is a symbolic link now, as a path; empty if none is.
    [[nodiscard]] std::string FindLink(const std::string& path) const;

    // Makes the folder, and those missing above it, which get the usual permissions. An existing
    // one keeps its own.
    [[nodiscard]] std::error_code MakeFolder(const std::string& path, unsigned permissions);

    // One file: begun, written in pieces, and then finished or dropped. Missing folders above it
    // are made. A failed Begin or Finish has dropped the file.
    [[nodiscard]] std::error_code BeginFile(const std::string& path);
    [[nodiscard]] std::error_code WriteFile(std::string_view bytes);
    [[nodiscard]] std::error_code FinishFile(unsigned permissions);
    void DropFile();

    // True when it is time to Commit: finished files hold memory and their folders descriptors.
    [[nodiscard]] bool IsBatchFull() const;

    // Puts all finished files in place, in the order in which they were finished. At the first that
    // cannot be put there, the others are dropped, and `failedPath` names it; it is empty if the
    // disk failed.
    [[nodiscard]] std::error_code Commit(std::string& failedPath);

  private:
    struct Folder {
        ScopedFd fd;
        bool touched = false;  // got a new name in this batch
    };
    using FolderPtr = std::shared_ptr<Folder>;

    struct File {
        FolderPtr folder;
        std::string path;
        std::string temporaryName;
        ScopedFd fd;
    };

    std::error_code OpenFolder(const std::string& path, FolderPtr& folder);
    static std::error_code OpenSubfolder(const FolderPtr& parent, const std::string& name,
                                         FolderPtr& folder);
    void DropFinished(std::size_t first);
    [[nodiscard]] std::error_code SyncFiles() const;
    [[nodiscard]] std::error_code SyncFolders() const;
    [[nodiscard]] std::error_code SyncFileSystems() const;

    FolderPtr m_root;
    std::string m_temporaryPrefix;
    std::uint64_t m_temporaryCount = 0;

    File m_file;  // the one begun, if its folder is set

    // The batch: finished files, and the folders that were opened for them, by path.
    std::vector<File> m_finished;
    std::map<std::string, FolderPtr> m_folders;
};

// Removes the temporary files that killed processes have left in the folder or anywhere below it,
// without following links: those whose names begin with the prefix. Does nothing while a TreeWriter
// is at work on the same folder. What cannot be removed stays, and the first error is returned.
[[nodiscard]] std::error_code RemoveTemporaryFilesBelow(const std::string& folder,
                                                        const std::string& temporaryPrefix);
