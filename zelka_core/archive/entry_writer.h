#pragma once

#include <deque>
#include <optional>
#include <string>
#include <system_error>

#include "platform/tree_writer.h"
#include "zelka_core/archive/unzip.h"
#include "zelka_core/archive/zip_archive.h"
#include "zelka_core/system/sha256.h"

namespace ZelkaCore {

// Writes files of one archive below one folder, and takes their checksums if somebody asks for
// them. For one thread.
class EntryWriter {
  public:
    // The archive outlives the object; `progress` may be null.
    EntryWriter(ZipArchive& archive, void (*progress)())
        : m_archive(archive), m_progress(progress) {}

    // Whoever is told of each file that came into its place. Null, as at first: nobody.
    void SetObserver(UnzipObserver* observer) { m_observer = observer; }

    [[nodiscard]] TreeWriter& Writer() { return m_writer; }

    // Has the entry written to `path`; `place` is that without links. False, with the reason in
    // `reason`, if it is damaged or cannot be written; that may also show at the next Commit.
    bool Write(const ZipEntry& entry, const std::string& path, const std::string& place,
               std::string& reason);

    // TreeWriter::Commit.
    [[nodiscard]] std::error_code Commit(std::string& failedPath);

  private:
    // What becomes of a file until it is in its place.
    struct Result {
        std::string place;
        std::string sum;
        unsigned mode = 0;
    };

    std::error_code WriteSmall(const ZipEntry& entry, const std::string& path, Result& result,
                               std::string& reason);
    std::error_code WriteLarge(const ZipEntry& entry, const std::string& path, Result& result,
                               std::string& reason);
    void Progress() const;

    ZipArchive& m_archive;
    void (*const m_progress)();
    UnzipObserver* m_observer = nullptr;
    std::deque<Result> m_results;  // of the files that were not committed yet
    std::optional<Sha256> m_sum;   // of a large file
    TreeWriter m_writer;           // goes first, as its other thread uses what stands above
};

}  // namespace ZelkaCore
