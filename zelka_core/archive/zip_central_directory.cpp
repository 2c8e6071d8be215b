#include "zelka_core/archive/zip_central_directory.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

namespace ZelkaCore {

namespace {

// Sizes and offsets within the records, by APPNOTE.TXT.
constexpr std::string_view kHeaderSignature("PK\1\2", 4);
constexpr std::size_t kHeaderSize = 46;
constexpr std::string_view kEndSignature("PK\5\6", 4);
constexpr std::size_t kEndSize = 22;
constexpr std::string_view kLocatorSignature("PK\6\7", 4);
constexpr std::size_t kLocatorSize = 20;
constexpr std::string_view kEnd64Signature("PK\6\6", 4);
constexpr std::size_t kEnd64Size = 56;

constexpr std::string_view kEntrySignature("PK\3\4", 4);

constexpr std::uint64_t kMostEntries = 500'000;
constexpr std::uint64_t kLongestDirectory = 0x8000000;
constexpr std::uint64_t kLongestComment = 0xffff;
constexpr std::uint64_t kMostBeside = 0x10000;  // bytes before the archive, and behind it

// Where things are in the file, but for `offset`, which counts from the archive's begin.
struct Directory {
    std::uint64_t entries = 0;
    std::uint64_t size = 0;
    std::uint64_t offset = 0;
    std::uint64_t end = 0;         // where the end records begin
    std::uint64_t archiveEnd = 0;  // where the last of them ends

    [[nodiscard]] std::uint64_t Start() const { return end - size; }
    [[nodiscard]] std::uint64_t ArchiveBegin() const { return Start() - offset; }
};

// A little-endian number; the caller has made sure of the bytes.
template <typename Number>
Number At(std::string_view bytes, std::size_t offset) {
    std::uint64_t value = 0;
    for (std::size_t i = sizeof(Number); i-- > 0;) {
        value = value << 8U | static_cast<unsigned char>(bytes[offset + i]);
    }
    return static_cast<Number>(value);
}

bool ReadAt(std::FILE* file, std::uint64_t offset, std::size_t size, std::string& bytes) {
    bytes.resize(size);
    return offset <= std::uint64_t{std::numeric_limits<off_t>::max()} &&
           fseeko(file, static_cast<off_t>(offset), SEEK_SET) == 0 &&
           std::fread(bytes.data(), 1, size, file) == size;
}

// The last part of a file, in which the end records are looked for.
struct Tail {
    std::uint64_t offset = 0;
    std::string bytes;
};

bool HasSignature(std::FILE* file, std::uint64_t offset, std::string_view signature) {
    std::string bytes;
    return ReadAt(file, offset, signature.size(), bytes) && bytes == signature;
}

// Takes the place of the directory from the 64-bit record that the locator at `at` belongs to. It
// lies right before the locator; one with data of its own lies where the locator says.
bool TakeEnd64(std::FILE* file, const Tail& tail, std::size_t at, Directory& directory) {
    std::uint64_t place = tail.offset + at - std::min<std::uint64_t>(tail.offset + at, kEnd64Size);
    if (!HasSignature(file, place, kEnd64Signature)) {
        place = At<std::uint64_t>(tail.bytes, at + 8);
    }
    std::string record;
    if (!ReadAt(file, place, kEnd64Size, record) || !record.starts_with(kEnd64Signature)) {
        return false;
    }
    directory.entries = At<std::uint64_t>(record, 32);
    directory.size = At<std::uint64_t>(record, 40);
    directory.offset = At<std::uint64_t>(record, 48);
    directory.end = place;
    return true;
}

// Whether the 20 bytes before an end record point to a 64-bit one.
bool HasLocator(const Tail& tail, std::size_t at) {
    return at >= kLocatorSize &&
           std::string_view(tail.bytes).substr(at - kLocatorSize, 4) == kLocatorSignature;
}

// What the end record at `at` says; nothing if it is none.
std::optional<Directory> ReadEnd(std::FILE* file, const Tail& tail, std::size_t at) {
    if (tail.bytes.size() - at < kEndSize) {
        return std::nullopt;
    }
    const std::size_t commentSize = At<std::uint16_t>(tail.bytes, at + 20);
    const std::size_t left = tail.bytes.size() - at - kEndSize;
    if (commentSize > left || left - commentSize > kMostBeside) {
        return std::nullopt;
    }
    Directory directory{.entries = At<std::uint16_t>(tail.bytes, at + 10),
                        .size = At<std::uint32_t>(tail.bytes, at + 12),
                        .offset = At<std::uint32_t>(tail.bytes, at + 16),
                        .end = tail.offset + at,
                        .archiveEnd = tail.offset + at + kEndSize + commentSize};
    if (HasLocator(tail, at) && !TakeEnd64(file, tail, at - kLocatorSize, directory)) {
        return std::nullopt;
    }
    return directory;
}

// Whether the directory lies where its end says. An archive that was cut off may hold a whole one:
// then the file begins as an archive, but not as this one.
bool IsInPlace(std::FILE* file, const Directory& directory) {
    if (directory.size > directory.end || directory.offset > directory.Start() ||
        directory.ArchiveBegin() > kMostBeside) {
        return false;
    }
    const bool isCutOff = directory.ArchiveBegin() > 0 && HasSignature(file, 0, kEntrySignature);
    return !isCutOff &&
           (directory.size == 0 || HasSignature(file, directory.Start(), kHeaderSignature));
}

// The directory of the last archive in the file. libzip looks for the end by itself, and takes
// memory for as many entries as the first one that it finds speaks of: a second 64-bit one is
// refused.
std::optional<Directory> FindDirectory(std::FILE* file, std::uint64_t fileSize,
                                       std::string& fault) {
    const auto size = std::min(fileSize, kEndSize + kLocatorSize + kLongestComment + kMostBeside);
    Tail tail{.offset = fileSize - size, .bytes = {}};
    fault = "is not a ZIP archive, or its end is missing";
    if (!ReadAt(file, tail.offset, size, tail.bytes)) {
        return std::nullopt;
    }
    std::optional<Directory> found;
    int locators = 0;  // of others than the found one
    for (std::size_t at = tail.bytes.rfind(kEndSignature); at != std::string::npos;
         at = at == 0 ? std::string::npos : tail.bytes.rfind(kEndSignature, at - 1)) {
        const auto read = found ? std::nullopt : ReadEnd(file, tail, at);
        if (read && IsInPlace(file, *read)) {
            found = read;
        } else {
            fault = read ? "has its directory not where its end says" : fault;
            locators += HasLocator(tail, at) ? 1 : 0;
        }
    }
    if (found && locators > 0) {
        fault = "has two ends";
        return std::nullopt;
    }
    return found;
}

// The name in the header that comes next in the file, which `left` bytes of headers are left for.
bool ReadName(std::FILE* file, std::uint64_t& left, std::string& name) {
    std::array<char, kHeaderSize> bytes{};
    const std::string_view header(bytes.data(), bytes.size());
    if (left < kHeaderSize || std::fread(bytes.data(), 1, kHeaderSize, file) != kHeaderSize ||
        !header.starts_with(kHeaderSignature)) {
        return false;
    }
    left -= kHeaderSize;
    const std::size_t nameSize = At<std::uint16_t>(header, 28);
    const std::size_t size =
        nameSize + At<std::uint16_t>(header, 30) + At<std::uint16_t>(header, 32);
    name.resize(size);
    if (left < size || std::fread(name.data(), 1, size, file) != size) {
        return false;
    }
    left -= size;
    name.resize(nameSize);
    return true;
}

// Says why not if the directory does not consist of as many whole headers as it says.
bool ReadNames(std::FILE* file, const Directory& directory, std::vector<std::string>& names,
               std::string& fault) {
    if (directory.entries > kMostEntries || directory.size > kLongestDirectory) {
        fault = "has a directory of more than " + std::to_string(kMostEntries) + " entries or " +
                std::to_string(kLongestDirectory) + " bytes";
        return false;
    }
    if (fseeko(file, static_cast<off_t>(directory.Start()), SEEK_SET) != 0) {
        fault = "cannot be read";
        return false;
    }
    std::string name;
    for (std::uint64_t left = directory.size; left > 0;) {
        if (!ReadName(file, left, name)) {
            fault = "has a damaged directory";
            return false;
        }
        names.push_back(name);
    }
    if (names.size() != directory.entries) {
        fault = "says that it holds " + std::to_string(directory.entries) + " entries and holds " +
                std::to_string(names.size());
        return false;
    }
    return true;
}

std::optional<std::uint64_t> SizeOf(std::FILE* file) {
    const off_t size = fseeko(file, 0, SEEK_END) == 0 ? ftello(file) : -1;
    return size < 0 ? std::nullopt : std::optional(static_cast<std::uint64_t>(size));
}

}  // namespace

bool ReadCentralDirectory(std::FILE* file, ZipDirectory& directory, std::string& fault) {
    const auto fileSize = SizeOf(file);
    if (!fileSize) {
        fault = "cannot be read";
        return false;
    }
    const auto found = FindDirectory(file, *fileSize, fault);
    std::vector<std::string> names;
    if (!found || !ReadNames(file, *found, names, fault)) {
        return false;
    }
    directory = {.begin = found->ArchiveBegin(),
                 .size = found->archiveEnd - found->ArchiveBegin(),
                 .names = std::move(names)};
    return true;
}

}  // namespace ZelkaCore
