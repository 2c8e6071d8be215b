#include "zelka_core/archive/zip_central_directory.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>

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

struct Directory {
    std::uint64_t entries;
    std::uint64_t size;
    std::uint64_t offset;
    std::uint64_t end;  // where the end records begin
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

// Where in `tail` the end record begins whose comment ends with the file.
std::optional<std::size_t> FindEnd(std::string_view tail) {
    for (std::size_t at = tail.rfind(kEndSignature); at != std::string_view::npos;
         at = tail.rfind(kEndSignature, at - 1)) {
        if (tail.size() - at >= kEndSize &&
            At<std::uint16_t>(tail, at + 20) == tail.size() - at - kEndSize) {
            return at;
        }
        if (at == 0) {
            break;
        }
    }
    return std::nullopt;
}

std::optional<Directory> FindDirectory(std::FILE* file, std::uint64_t fileSize) {
    const std::size_t longestTail = kEndSize + kLocatorSize + 0xffff;
    const auto tailSize = static_cast<std::size_t>(std::min<std::uint64_t>(fileSize, longestTail));
    std::string tail;
    if (!ReadAt(file, fileSize - tailSize, tailSize, tail)) {
        return std::nullopt;
    }
    const auto at = FindEnd(tail);
    if (!at) {
        return std::nullopt;
    }
    if (*at < kLocatorSize ||
        std::string_view(tail).substr(*at - kLocatorSize, 4) != kLocatorSignature) {
        return Directory{.entries = At<std::uint16_t>(tail, *at + 10),
                         .size = At<std::uint32_t>(tail, *at + 12),
                         .offset = At<std::uint32_t>(tail, *at + 16),
                         .end = fileSize - tailSize + *at};
    }
    const auto end64 = At<std::uint64_t>(tail, *at - kLocatorSize + 8);
    std::string record;
    if (!ReadAt(file, end64, kEnd64Size, record) || !record.starts_with(kEnd64Signature)) {
        return std::nullopt;
    }
    return Directory{.entries = At<std::uint64_t>(record, 32),
                     .size = At<std::uint64_t>(record, 40),
                     .offset = At<std::uint64_t>(record, 48),
                     .end = end64};
}

// The names in the headers of which `headers` consists; nothing if it does not consist of whole
// headers.
std::optional<std::vector<std::string>> CollectNames(std::string_view headers) {
    std::vector<std::string> names;
    while (!headers.empty()) {
        if (headers.size() < kHeaderSize || !headers.starts_with(kHeaderSignature)) {
            return std::nullopt;
        }
        const std::size_t nameSize = At<std::uint16_t>(headers, 28);
        const std::size_t size = kHeaderSize + nameSize + At<std::uint16_t>(headers, 30) +
                                 At<std::uint16_t>(headers, 32);
        if (headers.size() < size) {
            return std::nullopt;
        }
        names.emplace_back(headers.substr(kHeaderSize, nameSize));
        headers.remove_prefix(size);
    }
    return names;
}

std::optional<std::uint64_t> SizeOf(std::FILE* file) {
    const off_t size = fseeko(file, 0, SEEK_END) == 0 ? ftello(file) : -1;
    return size < 0 ? std::nullopt : std::optional(static_cast<std::uint64_t>(size));
}

}  // namespace

bool ReadCentralDirectoryNames(std::FILE* file, std::vector<std::string>& names,
                               std::string& fault) {
    const auto fileSize = SizeOf(file);
    const auto directory = fileSize ? FindDirectory(file, *fileSize) : std::nullopt;
    if (!directory) {
        fault = "is not a ZIP archive, or its end is missing";
        return false;
    }
    std::string headers;
    if (directory->offset > directory->end ||
        directory->size != directory->end - directory->offset ||
        !ReadAt(file, directory->offset, static_cast<std::size_t>(directory->size), headers)) {
        fault = "has its directory not where its end says";
        return false;
    }
    auto found = CollectNames(headers);
    if (!found) {
        fault = "has a damaged directory";
        return false;
    }
    if (found->size() != directory->entries) {
        fault = "says that it holds " + std::to_string(directory->entries) + " entries and holds " +
                std::to_string(found->size());
        return false;
    }
    names = std::move(*found);
    return true;
}

}  // namespace ZelkaCore
