#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "platform/folder_tree.h"
#include "platform/scoped_fd.h"

class WorkQueue;

// Writes files below one folder such that nothing lands outside of it (FolderTree), and that every
// target is the old file or the new one, whole, also after a power cut.
//
// A file is written under a temporary name in the folder that it is for; a folder that is missing
// is made under one, with the files in it under their own. Commit brings a batch of them to the
// disk and then renames each over its target, so the disk is waited for once a batch, not once a
// file. A second thread writes, too, so what is wrong with a file may show only when it is
// finished, or committed. Paths are those of FolderTree, each once a batch. For one thread at a
// time.
class TreeWriter {
  public:
    // Sees the bytes of a file before they are written, one piece after the other, on any thread.
    using Witness = std::function<void(std::string_view bytes)>;

    TreeWriter();
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
    // `given`, if it is not null, receives what it got. A failed Begin or Finish has dropped the
    // file.
    [[nodiscard]] std::error_code BeginFile(const std::string& path, Witness witness = {});
    // False if it is of no use to go on: finishing it tells why.
    bool WriteFile(std::string_view bytes);
    [[nodiscard]] std::error_code FinishFile(std::optional<unsigned> permissions,
                                             unsigned* given = nullptr);
    void DropFile();

    // A whole small file at once, whose witness and `given` last until the next Commit, which also
    // tells what was wrong with it.
    [[nodiscard]] std::error_code AddFile(const std::string& path, std::string content,
                                          std::optional<unsigned> permissions, Witness witness = {},
                                          unsigned* given = nullptr);

    // True when it is time to Commit: finished files hold memory and their folders descriptors.
    [[nodiscard]] bool IsBatchFull() const;

    // Puts all finished files in place, in the order in which they were finished. At the first that
    // could not be written or cannot be put there, it and the others are dropped, and `failedPath`
    // names it; it is empty if the disk failed.
    [[nodiscard]] std::error_code Commit(std::string& failedPath);

  private:
    struct File {
        FolderTree::FolderPtr folder;
        std::string path;
        std::string name;  // in the folder
        std::string temporaryName;
        ScopedFd fd;
        Witness witness;
        std::error_code error;       // of writing it
        std::uint64_t size = 0;      // written so far
        std::uint64_t onItsWay = 0;  // of that, to the disk
    };

    // Small files for one folder, written by one thread one after the other: two threads in one
    // folder would wait for each other.
    struct SmallFile {
        File* file = nullptr;
        std::string content;
        std::optional<unsigned> permissions;
        unsigned* given = nullptr;
        bool staysOpen = false;
    };
    struct Bundle {
        FolderTree::FolderPtr folder;
        std::size_t bytes = 0;
        std::vector<SmallFile> files;
    };

    [[nodiscard]] std::error_code NewFile(const std::string& path, File& file);
    static void WriteWhole(const SmallFile& small);
    void SendBundle();
    void FinishWork();
    void CloseIfMany();
    void DropFinished(std::size_t first);
    [[nodiscard]] std::error_code SyncFiles();
    [[nodiscard]] std::error_code PlaceFiles(std::size_t& placed, std::string& failedPath);
    void RemoveStaged();

    FolderTree m_tree;
    std::string m_temporaryPrefix;
    std::uint64_t m_temporaryCount = 0;

    File m_file;                           // the one begun, if its folder is set
    std::deque<File> m_finished;           // the batch
    std::atomic<bool> m_isFailed = false;  // the one begun
    Bundle m_bundle;                       // not given to the queue yet
    std::unique_ptr<WorkQueue> m_queue;
};

// Removes the temporary files and folders that killed processes have left in the folder or anywhere
// below it, at any depth and without following links: those whose names begin with the prefix, and
// all that is in such folders. Nobody may be at work there meanwhile. What cannot be removed stays,
// and the first error is returned.
[[nodiscard]] std::error_code RemoveTemporaryFilesBelow(const std::string& folder,
                                                        const std::string& temporaryPrefix);
