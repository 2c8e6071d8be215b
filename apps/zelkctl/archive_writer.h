#pragma once

#include <zip.h>

#include <list>
#include <memory>
#include <string>

#include "platform/file.h"

// Writes a ZIP archive that only this user can read. It is at its place whole or not at all: what
// is not finished goes with the object. What fails is a CommandError.
class ArchiveWriter {
  public:
    explicit ArchiveWriter(const std::string& path);

    void AddText(const std::string& name, std::string content);

    // The file is read by Finish.
    void AddFile(const std::string& name, FileStream file);

    // Replaces what has the path.
    void Finish();

  private:
    // The file beside, which goes with the object if it is still there.
    class Temporary {
      public:
        explicit Temporary(const std::string& path);
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

    void Add(const std::string& name, zip_source_t* source);

    std::string m_path;
    Temporary m_temporary;
    std::list<std::string> m_texts;  // read by Finish; none of them moves
    std::unique_ptr<zip_t, Discard> m_archive;
};
