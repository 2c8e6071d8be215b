#include "zelka_core/archive/package_check.h"

#include <algorithm>
#include <cctype>
#include <limits>
#include <string_view>
#include <utility>

#include "zelka_core/archive/shown_name.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

// What the usual file systems take, in bytes: NAME_MAX, and PATH_MAX less room for the target
// folder.
constexpr std::size_t kLongestPart = 255;
constexpr std::size_t kLongestPath = 3072;

std::string PartFault(std::string_view part) {
    if (part == "..") {
        return "leads out of the folder with '..'";
    }
    if (part.size() > kLongestPart) {
        return "has a part that is too long for a file name";
    }
    if (part.starts_with(kTemporaryPrefix)) {
        return "has a name that is kept for temporary files";
    }
    return {};
}

std::string NameFault(std::string_view name) {
    if (name.empty()) {
        return "has no name";
    }
    if (!IsValidUtf8(name)) {
        return "has a name that is not UTF-8";
    }
    if (HasDeceptiveCharacter(FromUtf8(std::string(name)))) {
        return "has a NUL or another control character in its name";
    }
    if (name.find('\\') != std::string_view::npos) {
        return "has a backslash in its name";
    }
    if (name.front() == '/') {
        return "is an absolute path";
    }
    if (name.size() > 1 && name[1] == ':' &&
        std::isalpha(static_cast<unsigned char>(name[0])) != 0) {
        return "begins with a drive letter";
    }
    return name.size() > kLongestPath ? "has a name that is too long" : "";
}

// Appends the parts of `name` to `path`.
std::string JoinParts(std::string_view name, std::string& path) {
    while (!name.empty()) {
        const std::string_view part = name.substr(0, name.find('/'));
        if (std::string fault = PartFault(part); !fault.empty()) {
            return fault;
        }
        if (!part.empty() && part != ".") {
            path.append(path.empty() ? "" : "/").append(part);
        }
        name.remove_prefix(std::min(name.size(), part.size() + 1));
    }
    return {};
}

std::string PathOf(const ZipEntry& entry, std::string& path) {
    if (std::string fault = NameFault(entry.name); !fault.empty()) {
        return fault;
    }
    if (std::string fault = JoinParts(entry.name, path); !fault.empty()) {
        return fault;
    }
    if (path.empty() && !entry.IsFolder()) {
        return "has no name";
    }
    return ZipEntryFault(entry);
}

// The entry that stands in the way of another: of the same path, or below a file.
const ZipEntry* FindClash(const std::vector<ZipEntry>& entries,
                          const std::vector<std::string>& paths, std::string& fault) {
    struct Place {
        std::string key;
        const ZipEntry* entry;
    };
    std::vector<Place> places;
    places.reserve(entries.size());
    for (std::size_t i = 0; i < entries.size(); ++i) {
        // With a separator that is below every character of a name, what lies below a path follows
        // it directly when sorted.
        Place& place = places.emplace_back(Place{.key = paths[i], .entry = &entries[i]});
        std::replace(place.key.begin(), place.key.end(), '/', '\1');
    }
    std::sort(places.begin(), places.end(),
              [](const Place& a, const Place& b) { return a.key < b.key; });
    const auto clash =
        std::adjacent_find(places.begin(), places.end(), [](const Place& a, const Place& b) {
            return a.key == b.key || (!a.entry->IsFolder() && b.key.starts_with(a.key + '\1'));
        });
    if (clash == places.end()) {
        return nullptr;
    }
    const bool same = clash->key == (clash + 1)->key;
    fault = same ? "is there twice" : "lies below an entry that is a file";
    return (clash + 1)->entry;
}

constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();

std::uint64_t SaturatedSum(std::uint64_t a, std::uint64_t b) {
    return a + std::min(b, kLargest - a);
}

// The folders in all these names. When sorted, names in one folder follow each other.
std::uint64_t CountFolders(std::vector<std::string_view> names) {
    std::sort(names.begin(), names.end());
    std::uint64_t count = 0;
    std::string_view previous;
    for (const std::string_view name : names) {
        const auto news = std::mismatch(name.begin(), name.end(), previous.begin(), previous.end());
        count += static_cast<std::uint64_t>(std::count(news.first, name.end(), '/'));
        previous = name;
    }
    return count;
}

}  // namespace

std::string EntryFault(const ZipEntry& entry, const std::string& reason) {
    return "entry '" + ToUtf8(ShownName(FromUtf8(entry.name))) + "': " + reason;
}

bool CheckPackage(const std::vector<ZipEntry>& entries, std::vector<std::string>& paths,
                  std::string& fault) {
    std::vector<std::string> found;
    found.reserve(entries.size());
    for (const ZipEntry& entry : entries) {
        if (const std::string reason = PathOf(entry, found.emplace_back()); !reason.empty()) {
            fault = EntryFault(entry, reason);
            return false;
        }
    }
    if (!CheckClashes(entries, found, fault)) {
        return false;
    }
    paths = std::move(found);
    return true;
}

bool CheckClashes(const std::vector<ZipEntry>& entries, const std::vector<std::string>& paths,
                  std::string& fault) {
    std::string reason;
    const ZipEntry* entry = FindClash(entries, paths, reason);
    if (entry != nullptr) {
        fault = EntryFault(*entry, reason);
    }
    return entry == nullptr;
}

DeclaredRoom RoomFor(const std::vector<ZipEntry>& entries, std::uint64_t blockSize) {
    DeclaredRoom room;
    std::vector<std::string_view> names;
    names.reserve(entries.size());
    std::uint64_t blocks = 0;
    for (const ZipEntry& entry : entries) {
        names.emplace_back(entry.name);
        const std::uint64_t own = entry.size / blockSize + (entry.size % blockSize == 0 ? 0 : 1);
        blocks = SaturatedSum(blocks, own);
        room.files += entry.IsFolder() ? 0U : 1U;
    }
    const std::uint64_t folders = CountFolders(std::move(names));
    room.files += folders;
    blocks = SaturatedSum(blocks, folders);
    room.bytes = blocks > kLargest / blockSize ? kLargest : blocks * blockSize;
    return room;
}

}  // namespace ZelkaCore
