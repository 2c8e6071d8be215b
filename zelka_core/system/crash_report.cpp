#include "zelka_core/system/crash_report.h"

#include <wx/strconv.h>

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/crash.h"
#include "platform/minidump_format.h"
#include "zelka_core/text.h"

namespace ZelkaCore {
namespace {

namespace minidump = crash::minidump;

// More than is ever written.
constexpr std::uint32_t kMostStreams = 64;
constexpr std::uint32_t kMostModules = 4096;
constexpr std::uint32_t kLongestText = 64 * 1024;  // bytes in the file

// Reads at places that the file names, each of them a claim.
class Reader {
  public:
    explicit Reader(std::FILE* file) : m_file(file) {}

    [[nodiscard]] bool ReadAt(std::uint64_t offset, void* target, std::size_t size) const {
        return std::fseek(m_file, static_cast<long>(offset), SEEK_SET) == 0 &&
               std::fread(target, 1, size, m_file) == size;
    }

    template <class Record>
    [[nodiscard]] bool Read(std::uint64_t offset, Record& record) const {
        static_assert(std::is_trivially_copyable_v<Record>);
        return ReadAt(offset, &record, sizeof record);
    }

    // The record that fills the location, or begins it.
    template <class Record>
    [[nodiscard]] bool Read(const minidump::Location& location, Record& record) const {
        return location.dataSize >= sizeof record && Read(std::uint64_t{location.rva}, record);
    }

    // A UTF-16 text of so many bytes, up to its first null.
    [[nodiscard]] bool ReadText(std::uint64_t offset, std::uint32_t bytes,
                                std::string& text) const {
        if (bytes > kLongestText || bytes % sizeof(char16_t) != 0) {
            return false;
        }
        std::vector<char> units(bytes);
        if (!ReadAt(offset, units.data(), units.size())) {
            return false;
        }
        const wxString wide(units.data(), wxMBConvUTF16LE(), units.size());
        if (wide.empty() && bytes > sizeof(char16_t)) {
            return false;  // half of a pair
        }
        const std::string whole = ToUtf8(wide);
        text = whole.substr(0, whole.find('\0'));
        return true;
    }

  private:
    std::FILE* m_file;
};

// The streams that tell something; those that the dump lacks are empty.
struct Streams {
    minidump::Location comment;
    minidump::Location exception;
    minidump::Location modules;
    minidump::Location misc;
};

bool ReadStreams(const Reader& reader, const minidump::Header& header, Streams& streams) {
    const std::uint32_t count = std::min(header.numberOfStreams, kMostStreams);
    for (std::uint32_t i = 0; i < count; ++i) {
        minidump::Directory entry{};
        if (!reader.Read(header.streamDirectoryRva + std::uint64_t{i} * sizeof entry, entry)) {
            return false;
        }
        switch (entry.streamType) {
            case minidump::kCommentStreamW:
                streams.comment = entry.location;
                break;
            case minidump::kExceptionStream:
                streams.exception = entry.location;
                break;
            case minidump::kModuleListStream:
                streams.modules = entry.location;
                break;
            case minidump::kMiscInfoStream:
                streams.misc = entry.location;
                break;
            default:
                break;
        }
    }
    return true;
}

void TakeComment(std::string_view rest, CrashReport& report) {
    const auto nextLine = [&rest] {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        return std::string(line);
    };
    report.application = nextLine();
    report.fault = nextLine();
    report.lua = rest;
}

// Where the thread of the fault was.
bool ReadModule(const Reader& reader, const minidump::Location& list, std::uint64_t address,
                CrashReport& report) {
    std::uint32_t count = 0;
    if (!reader.Read(list, count)) {
        return false;
    }
    for (std::uint32_t i = 0; i < std::min(count, kMostModules); ++i) {
        minidump::Module module{};
        if (!reader.Read(list.rva + sizeof count + std::uint64_t{i} * sizeof module, module)) {
            return false;
        }
        const std::uint64_t offset = address - module.baseOfImage;
        if (address >= module.baseOfImage && offset < module.sizeOfImage) {
            std::uint32_t bytes = 0;
            report.offset = offset;
            const std::uint64_t name = module.moduleNameRva;
            return reader.Read(name, bytes) &&
                   reader.ReadText(name + sizeof bytes, bytes, report.module);
        }
    }
    return true;
}

bool ReadFault(const Reader& reader, const Streams& streams, CrashReport& report) {
    minidump::ExceptionStream exception{};
    minidump::ContextAmd64 context{};
    if (!reader.Read(streams.exception, exception) ||
        !reader.Read(exception.threadContext, context)) {
        return false;
    }
    report.signal = exception.exception.exceptionCode;
    report.signalName = NameOfFault(static_cast<int>(report.signal));
    report.thread = exception.threadId;
    return ReadModule(reader, streams.modules, context.rip, report);
}

}  // namespace

bool ReadCrashReport(std::FILE* file, CrashReport& report, std::string& fault) {
    const Reader reader(file);
    minidump::Header header{};
    if (!reader.Read(0, header) || header.signature != minidump::kSignature) {
        fault = "it is no crash dump";
        return false;
    }
    CrashReport found;
    found.time = header.timeDateStamp;
    Streams streams{};
    if (!ReadStreams(reader, header, streams)) {
        fault = "its directory is damaged";
        return false;
    }
    if (!ReadFault(reader, streams, found)) {
        fault = "its record of the fault is damaged";
        return false;
    }
    minidump::MiscInfo misc{};
    std::string comment;
    if (!reader.Read(streams.misc, misc) ||
        !reader.ReadText(streams.comment.rva, streams.comment.dataSize, comment)) {
        fault = "its record of the process is damaged";
        return false;
    }
    found.process = misc.processId;
    TakeComment(comment, found);
    report = std::move(found);
    return true;
}

}  // namespace ZelkaCore
