#pragma once

#include <zip.h>

#include <cstdint>
#include <ctime>
#include <list>
#include <memory>
#include <string>

#include "platform/file.h"

// Writes a ZIP archive. It is at its place whole or not at all: what is not finished goes with the
// object. What fails is a CommandError.
class ArchiveWriter {
  public:
    enum class Kind {
        kPrivate,  // this user alone can read it
        kPackage,  // who can read it is up to the user's mask; Finish waits for the disk
    };

    // What an entry says of its file besides the content.
    struct Marks {
        unsigned mode = 0;         // type and permissions, as Unix has them
        std::time_t modified = 0;  // the archive has the local time
    };

    explicit ArchiveWriter(const std::string& path, Kind kind = Kind::kPrivate);

    void AddText(const std::string& name, std::string content);

    // The file is read by Finish.
    void AddFile(const std::string& name, FileStream file);

    // The same for a file that is not opened before, and for a folder, of which there is no path.
    // The same marks and contents in the same order give the same bytes.
    void AddMarked(const std::string& name, const std::string& path, const Marks& marks);

    // Replaces what has the path.
    void Finish();

  private:
    // The file beside, which goes with the object if it is still there.
    class Temporary {
      public:
        Temporary(const std::string& path, Kind kind);
        ~Temporary();
        Temporary(const Temporary&) = delete;
        Temporary& operator=(const Temporary&) = delete;
        [[nodiscard]] const std::string& Path() const { return m_path; }

      private:
        std::string m_path;
    };
    struct Discard {
        void operator()(zip_t* archive) const { zip_discard(archive); }
    };

    std::uint64_t Add(const std::string& name, zip_source_t* source);
    void SyncFolder() const;

    std::string m_path;
    Kind m_kind;
    Temporary m_temporary;
    std::list<std::string> m_texts;  // read by Finish; none of them moves
    std::unique_ptr<zip_t, Discard> m_archive;
};
