#include "zelka_core/archive/zip_archive.h"

#include <zip.h>

#include <algorithm>
#include <cstdio>
#include <system_error>
#include <utility>

#include "platform/error.h"
#include "platform/file.h"
#include "zelka_core/archive/shown_name.h"
#include "zelka_core/archive/zip_central_directory.h"
#include "zelka_core/archive/zip_source.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

constexpr std::size_t kBlockSize = 0x40000;

// The type of a file in the upper half of the external attributes, as archives from Unix have it.
constexpr std::uint32_t kTypeMask = 0170000;
constexpr std::uint32_t kTypeFolder = 0040000;
constexpr std::uint32_t kTypeRegular = 0100000;
constexpr std::uint32_t kTypeLink = 0120000;

struct EntryCloser {
    void operator()(zip_file_t* entry) const { (void)zip_fclose(entry); }
};

// libzip's error record, with what it owns.
class ZipError {
  public:
    ZipError() { zip_error_init(&m_error); }
    ~ZipError() { zip_error_fini(&m_error); }
    ZipError(const ZipError&) = delete;
    ZipError& operator=(const ZipError&) = delete;
    zip_error_t* Get() { return &m_error; }
    std::string Text() { return zip_error_strerror(&m_error); }

  private:
    zip_error_t m_error{};
};

FileStream OpenArchiveFile(const std::string& path, std::string& fault) {
    FileStream file;
    if (const auto error = OpenRegularStream(path, file)) {
        fault = error == PlatformError::kNotRegularFile ? "is not a regular file"
                                                        : "cannot be opened: " + error.message();
    }
    return file;
}

// The archive in `file`, which it owns from then on. Null with the reason in `fault`.
zip_t* OpenZip(FileStream file, const ZipDirectory& directory, std::string& fault) {
    ZipError error;
    zip_source_t* source = MakeZipSource(std::move(file), directory.begin, directory.size);
    if (source == nullptr) {
        fault = "cannot be opened: there is no memory";
        return nullptr;
    }
    zip_t* archive = zip_open_from_source(source, ZIP_RDONLY, error.Get());
    if (archive == nullptr) {
        zip_source_free(source);
        fault = "cannot be opened: " + error.Text();
    }
    return archive;
}

// True if libzip means the name that stands in the directory: it shows a NUL as a space, and
// prefers a name from an extra field of the entry.
bool IsSameName(std::string directoryName, std::string_view libraryName) {
    std::replace(directoryName.begin(), directoryName.end(), '\0', ' ');
    return directoryName == libraryName;
}

std::string Shown(const std::string& name) {
    return ToUtf8(ShownName(FromUtf8(name)));
}

bool ReadEntry(zip_t* archive, std::uint64_t index, ZipEntry& entry, std::string& fault) {
    zip_stat_t status;
    zip_stat_init(&status);
    const zip_uint64_t needed = ZIP_STAT_NAME | ZIP_STAT_SIZE | ZIP_STAT_COMP_SIZE |
                                ZIP_STAT_COMP_METHOD | ZIP_STAT_ENCRYPTION_METHOD;
    if (zip_stat_index(archive, index, ZIP_FL_ENC_RAW, &status) != 0 ||
        (status.valid & needed) != needed ||
        zip_file_get_external_attributes(archive, index, 0, &entry.system, &entry.attributes) !=
            0) {
        fault = "has a damaged directory: entry " + std::to_string(index);
        return false;
    }
    if (!IsSameName(entry.name, status.name)) {
        fault = "calls an entry both '" + Shown(entry.name) + "' and '" + Shown(status.name) + "'";
        return false;
    }
    entry.index = index;
    entry.size = status.size;
    entry.packed = status.comp_size;
    entry.checksum = (status.valid & ZIP_STAT_CRC) != 0 ? status.crc : 0;
    entry.modified = (status.valid & ZIP_STAT_MTIME) != 0 ? status.mtime : 0;
    entry.method = status.comp_method;
    entry.encrypted = status.encryption_method != ZIP_EM_NONE;
    return true;
}

bool ReadEntries(zip_t* archive, std::vector<std::string> names, std::vector<ZipEntry>& entries,
                 std::string& fault) {
    const zip_int64_t count = zip_get_num_entries(archive, 0);
    if (count < 0 || static_cast<std::uint64_t>(count) != names.size()) {
        fault = "has a damaged directory";
        return false;
    }
    entries.reserve(names.size());
    for (std::string& name : names) {
        ZipEntry entry;
        entry.name = std::move(name);
        if (!ReadEntry(archive, entries.size(), entry, fault)) {
            return false;
        }
        entries.push_back(std::move(entry));
    }
    return true;
}

}  // namespace

std::string ZipEntryFault(const ZipEntry& entry) {
    const std::uint32_t type = entry.attributes >> 16U & kTypeMask;
    if (entry.encrypted) {
        return "is encrypted";
    }
    if (type == kTypeLink) {
        return "is a symbolic link";
    }
    if (type != 0 && type != kTypeRegular && type != kTypeFolder) {
        return "is a device, a pipe or a socket";
    }
    if ((type == kTypeFolder && !entry.IsFolder()) || (type == kTypeRegular && entry.IsFolder()) ||
        (entry.IsFolder() && entry.size != 0)) {
        return "is a folder by half of its marks and a file by the others";
    }
    if (zip_compression_method_supported(entry.method, 0) == 0) {
        return "is packed by the unknown method " + std::to_string(entry.method);
    }
    // libzip looks no further where nothing is to be read.
    if ((entry.packed == 0 && entry.size != 0) || (entry.size == 0 && entry.checksum != 0) ||
        (entry.method == ZIP_CM_STORE && entry.packed != entry.size)) {
        return "has sizes and a checksum that do not fit each other";
    }
    return {};
}

void ZipArchive::Closer::operator()(zip* archive) const {
    zip_discard(archive);
}

ZipArchive::ZipArchive() = default;
ZipArchive::~ZipArchive() = default;
ZipArchive::ZipArchive(ZipArchive&&) noexcept = default;
ZipArchive& ZipArchive::operator=(ZipArchive&&) noexcept = default;

bool ZipArchive::Open(const std::string& path, std::string& fault) {
    FileStream file = OpenArchiveFile(path, fault);
    return file && Open(std::move(file), fault);
}

bool ZipArchive::Open(FileStream file, std::string& fault) {
    ZipDirectory directory;
    if (!ReadCentralDirectory(file.get(), directory, fault)) {
        return false;
    }
    const FileVersion version = VersionOf(file.get());
    std::unique_ptr<zip, Closer> archive(OpenZip(std::move(file), directory, fault));
    std::vector<ZipEntry> entries;
    if (!archive || !ReadEntries(archive.get(), std::move(directory.names), entries, fault)) {
        return false;
    }
    m_version = version;
    m_zip = std::move(archive);
    m_entries = std::move(entries);
    return true;
}

bool ZipArchive::Read(const ZipEntry& entry, const Sink& sink, std::string& fault) {
    const std::unique_ptr<zip_file_t, EntryCloser> file(
        zip_fopen_index(m_zip.get(), entry.index, 0));
    if (!file) {
        fault = zip_error_strerror(zip_get_error(m_zip.get()));
        return false;
    }
    m_block.resize(kBlockSize);
    std::uint64_t total = 0;
    for (;;) {
        const zip_int64_t got = zip_fread(file.get(), m_block.data(), m_block.size());
        if (got < 0) {
            fault = zip_file_strerror(file.get());
            return false;
        }
        total += static_cast<std::uint64_t>(got);
        if (total > entry.size || (got == 0 && total < entry.size)) {
            fault =
                "its size is not the " + std::to_string(entry.size) + " bytes that are declared";
            return false;
        }
        if (got == 0) {
            return true;
        }
        if (!sink({m_block.data(), static_cast<std::size_t>(got)})) {
            return false;
        }
    }
}

}  // namespace ZelkaCore
