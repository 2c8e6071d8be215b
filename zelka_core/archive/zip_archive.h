#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/file.h"
#include "platform/folder_tree.h"

struct zip;

namespace ZelkaCore {

// What the directory of an archive says about an entry.
struct ZipEntry {
    std::string name;  // byte for byte; '/' between folders and at the end of a folder's own name
    std::uint64_t index = 0;
    std::uint64_t size = 0;    // bytes, uncompressed
    std::uint64_t packed = 0;  // bytes, compressed
    std::uint32_t checksum = 0;
    std::time_t modified = 0;
    std::uint16_t method = 0;  // of compression
    bool encrypted = false;
    std::uint8_t system = 0;       // that made it, as in the high byte of "version made by"
    std::uint32_t attributes = 0;  // external ones; a Unix mode in the high half

    [[nodiscard]] bool IsFolder() const { return name.ends_with('/'); }

    // The entry's permission bits; 0 if it carries none.
    [[nodiscard]] unsigned Permissions() const { return attributes >> 16U & 0777U; }
};

// Why the entry is neither a folder nor a plain file that can be read: encrypted, packed by an
// unknown method, a link, a device, or of sizes and a checksum that do not fit each other. Empty if
// it is one of the two.
std::string ZipEntryFault(const ZipEntry& entry);

// A ZIP archive, opened once for reading at random. What replaces the file meanwhile is not seen.
// For one thread at a time.
class ZipArchive {
  public:
    // Takes the next block of an entry's content; false ends the reading.
    using Sink = std::function<bool(std::string_view)>;

    ZipArchive();
    ~ZipArchive();
    ZipArchive(ZipArchive&&) noexcept;
    ZipArchive& operator=(ZipArchive&&) noexcept;
    ZipArchive(const ZipArchive&) = delete;
    ZipArchive& operator=(const ZipArchive&) = delete;

    // Opens the archive and reads its directory. False leaves the object as it was and puts the
    // reason, fit to follow the archive's name, into `fault`.
    bool Open(const std::string& path, std::string& fault);
    // The same with the archive that the stream reads, which may have no name.
    bool Open(FileStream file, std::string& fault);

    // Of the file that was opened.
    [[nodiscard]] const FileVersion& Version() const { return m_version; }

    // In the order of the directory.
    [[nodiscard]] const std::vector<ZipEntry>& Entries() const { return m_entries; }

    // Hands the content of an entry to `sink` in blocks of bounded size. True if the whole of it
    // was taken, and has the size and the checksum that the directory tells. False after any fault,
    // with the reason in `fault`, or if the sink ended it, with `fault` untouched; the sink has
    // then seen a part, which may be damaged.
    bool Read(const ZipEntry& entry, const Sink& sink, std::string& fault);

  private:
    struct Closer {
        void operator()(zip* archive) const;
    };

    std::unique_ptr<zip, Closer> m_zip;
    FileVersion m_version;
    std::vector<ZipEntry> m_entries;
    std::vector<char> m_block;
};

}  // namespace ZelkaCore
