#include "platform/linux/crash/minidump_writer.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <ctime>

#include "platform/bounded_text.h"
#include "platform/linux/crash/cpu_context.h"
#include "platform/linux/crash/dump_file.h"
#include "platform/linux/crash/fault_text.h"
#include "platform/linux/crash/full_memory.h"
#include "platform/linux/crash/guarded_call.h"
#include "platform/linux/crash/signal_safe_calls.h"
#include "platform/linux/crash/utf16.h"

namespace crash {
namespace {

constexpr std::uint64_t kStackLimit = std::uint64_t{256} * 1024;
constexpr std::size_t kMaxStreams = 9;

// The streams written so far. Header and directory go to the front of the file when all are.
struct StreamList {
    std::array<minidump::Directory, kMaxStreams> entries;
    std::size_t count;

    void Add(minidump::StreamType type, minidump::Location location) {
        entries[count++] = {.streamType = type, .location = location};
    }
};

// A count, then that many records: the form of most of the format's lists.
template <typename Record>
minidump::Location AppendList(DumpFile& file, std::span<const Record> records) {
    const auto count = static_cast<std::uint32_t>(records.size());
    minidump::Location location = file.Append(&count, sizeof count);
    location.dataSize += file.Append(records.data(), records.size_bytes()).dataSize;
    return location;
}

minidump::Rva AppendString(DumpFile& file, std::string_view utf8, DumpTables& tables) {
    const std::size_t length = ToUtf16(utf8, tables.text);
    const auto bytes = static_cast<std::uint32_t>(length * sizeof(char16_t));
    const minidump::Rva rva = file.Append(&bytes, sizeof bytes).rva;
    (void)file.Append(tables.text.data(), bytes + sizeof(char16_t));
    return rva;
}

// Appends the thread whose registers are in `tables.context`, with its stack.
minidump::Thread AppendThread(DumpFile& file, pid_t id, const DumpTables& tables) {
    const MemoryRange stack = FindStack(tables.map.Mappings(), tables.context.rsp, kStackLimit);
    minidump::Thread thread{};
    thread.threadId = static_cast<std::uint32_t>(id);
    thread.threadContext = file.Append(&tables.context, sizeof tables.context);
    thread.stack = {
        .startOfMemoryRange = stack.begin,
        .memory = {.dataSize = static_cast<std::uint32_t>(stack.Size()), .rva = file.Here()}};
    file.AppendMemory(stack.begin, stack.Size());
    return thread;
}

// The faulting thread first, then those that have been stopped.
std::span<const minidump::Thread> AppendThreads(DumpFile& file, const EXCEPTION_POINTERS& fault,
                                                DumpTables& tables) {
    ReadContext(*fault.context, tables.context);
    tables.threads[0] = AppendThread(file, fault.thread, tables);
    std::size_t count = 1;
    for (const TracedThread& thread : tables.traced.Threads()) {
        if (thread.state == TracedThread::State::kStopped &&
            ReadContextOfTracedThread(thread.id, tables.context)) {
            tables.threads[count++] = AppendThread(file, thread.id, tables);
        }
    }
    return {tables.threads.data(), count};
}

minidump::Location AppendStackList(DumpFile& file, std::span<const minidump::Thread> threads,
                                   DumpTables& tables) {
    (void)std::transform(threads.begin(), threads.end(), tables.stacks.begin(),
                         [](const minidump::Thread& thread) { return thread.stack; });
    return AppendList<minidump::MemoryDescriptor>(file, {tables.stacks.data(), threads.size()});
}

minidump::Location AppendBuildId(DumpFile& file, const BuildId& id) {
    if (id.size == 0) {
        return {};
    }
    minidump::Location location =
        file.Append(&minidump::kCodeViewElfBuildId, sizeof minidump::kCodeViewElfBuildId);
    location.dataSize += file.Append(id.bytes.data(), id.size).dataSize;
    return location;
}

// The mappings of one file that follow each other, whose first one holds the start of the file.
std::span<const Mapping> MappingsOfFileAt(std::span<const Mapping> mappings) {
    const std::string_view path = mappings.front().Path();
    const auto end = std::find_if(mappings.begin(), mappings.end(),
                                  [path](const Mapping& m) { return m.Path() != path; });
    return mappings.first(static_cast<std::size_t>(end - mappings.begin()));
}

bool MayBeModule(std::span<const Mapping> mappings) {
    return mappings.front().Path().starts_with('/') && mappings.front().fileOffset == 0 &&
           mappings.front().readable &&
           std::any_of(mappings.begin(), mappings.end(),
                       [](const Mapping& mapping) { return mapping.executable; });
}

minidump::Location AppendModules(DumpFile& file, DumpTables& tables) {
    constexpr std::string_view kDeleted = " (deleted)";
    const int memoryFile = Open("/proc/self/mem", O_RDONLY);
    std::size_t count = 0;
    std::span<const Mapping> rest = tables.map.Mappings();
    while (!rest.empty() && count < tables.modules.size()) {
        const std::span<const Mapping> mappings = MappingsOfFileAt(rest);
        rest = rest.subspan(mappings.size());
        const std::uint64_t base = mappings.front().range.begin;
        BuildId buildId{};
        if (!MayBeModule(mappings) || !ReadElfImage(memoryFile, base, buildId)) {
            continue;
        }
        std::string_view path = mappings.front().Path();
        if (path.ends_with(kDeleted)) {
            path.remove_suffix(kDeleted.size());
        }
        minidump::Module& module = tables.modules[count++];
        module = {};
        module.baseOfImage = base;
        module.sizeOfImage = static_cast<std::uint32_t>(mappings.back().range.end - base);
        module.moduleNameRva = AppendString(file, path, tables);
        module.cvRecord = AppendBuildId(file, buildId);
    }
    Close(memoryFile);
    return AppendList<minidump::Module>(file, {tables.modules.data(), count});
}

// The address that the fault was about; where the thread was, if somebody sent the signal.
std::uint64_t FaultAddress(const EXCEPTION_POINTERS& fault) {
    const bool byProcessor = fault.info->si_code > 0 && fault.signal != SIGABRT;
    return byProcessor ? std::bit_cast<std::uint64_t>(fault.info->si_addr)
                       : static_cast<std::uint64_t>(fault.context->uc_mcontext.gregs[REG_RIP]);
}

minidump::Location AppendException(DumpFile& file, const EXCEPTION_POINTERS& fault,
                                   minidump::Location context) {
    minidump::ExceptionStream stream{};
    stream.threadId = static_cast<std::uint32_t>(fault.thread);
    stream.exception.exceptionCode = static_cast<std::uint32_t>(fault.signal);
    stream.exception.exceptionFlags = static_cast<std::uint32_t>(fault.info->si_code);
    stream.exception.exceptionAddress = FaultAddress(fault);
    stream.threadContext = context;
    return file.Append(&stream, sizeof stream);
}

minidump::Location AppendSystemInfo(DumpFile& file, const DumpTarget& target, DumpTables& tables) {
    minidump::SystemInfo info{};
    info.processorArchitecture = minidump::kArchitectureAmd64;
    info.numberOfProcessors = target.processorCount;
    info.platformId = minidump::kPlatformLinux;
    info.csdVersionRva = AppendString(file, target.systemVersion.data(), tables);
    return file.Append(&info, sizeof info);
}

minidump::Location AppendMiscInfo(DumpFile& file, pid_t process) {
    minidump::MiscInfo info{};
    info.sizeOfInfo = sizeof info;
    info.flags = minidump::kMiscProcessId;
    info.processId = static_cast<std::uint32_t>(process);
    return file.Append(&info, sizeof info);
}

// One call of the program's description.
struct DescriptionCall {
    CrashDescription describe;
    std::span<char> room;  // filled with nulls
    std::size_t length;
};

void Describe(void* argument) {
    auto& call = *static_cast<DescriptionCall*>(argument);
    call.length = call.describe(call.room.data(), call.room.size());
}

void AddDescription(CrashDescription describe, CommentText& comment, BoundedText& text) {
    const std::span<char> room(comment.description.data(), comment.description.size() - 1);
    DescriptionCall call{.describe = describe, .room = room, .length = 0};
    bool isWhole = false;
    if (!comment.isDescribing) {
        comment.description.fill('\0');
        comment.isDescribing = true;
        isWhole = CallDespiteFaults(Describe, &call);
        comment.isDescribing = false;
    }
    if (!isWhole) {
        call.length = strnlen(room.data(), room.size());
    }
    if (call.length != 0) {
        (void)text.Add("\n").Add({room.data(), std::min(call.length, room.size())});
    }
    if (!isWhole) {
        (void)text.Add("\n(what follows cannot be read)");
    }
}

void MakeComment(const EXCEPTION_POINTERS& fault, const DumpTarget& target, CommentText& comment) {
    BoundedText text(comment.text.data(), comment.text.size());
    (void)text.Add(target.comment.data()).Add("\n");
    AddFault(fault, text);
    if (target.describe != nullptr) {
        AddDescription(target.describe, comment, text);
    }
    comment.length = text.Length();
}

minidump::Location AppendComment(DumpFile& file, DumpTables& tables) {
    const std::size_t length =
        ToUtf16({tables.comment.text.data(), tables.comment.length}, tables.text);
    return file.Append(tables.text.data(), (length + 1) * sizeof(char16_t));
}

void WriteHeader(DumpFile& file, const StreamList& streams, bool fullMemory) {
    minidump::Header header{};
    header.signature = minidump::kSignature;
    header.version = minidump::kVersion;
    header.numberOfStreams = static_cast<std::uint32_t>(streams.count);
    header.streamDirectoryRva = sizeof header;
    header.timeDateStamp = static_cast<std::uint32_t>(time(nullptr));
    header.flags = fullMemory ? minidump::kFlagWithFullMemory : minidump::kFlagNormal;
    file.WriteAt(0, &header, sizeof header);
    file.WriteAt(sizeof header, streams.entries.data(),
                 streams.count * sizeof streams.entries.front());
}

}  // namespace

bool WriteMinidump(const EXCEPTION_POINTERS& fault, const DumpTarget& target, Threads which,
                   bool fullMemory, DumpTables& tables) {
    DumpFile file(target.path.data(), target.temporaryPath.data(), target.folder.data());
    if (file.Failed()) {
        return false;
    }
    tables.traced.count = 0;
    if (which == Threads::kAll) {
        StopThreads(fault.process, fault.thread, tables.traced);
    }
    MakeComment(fault, target, tables.comment);
    ReadMemoryMap(tables.map);

    StreamList streams{};
    file.AppendZeros(sizeof(minidump::Header) + sizeof streams.entries);
    const auto threads = AppendThreads(file, fault, tables);
    streams.Add(minidump::kThreadListStream, AppendList(file, threads));
    streams.Add(minidump::kMemoryListStream, AppendStackList(file, threads, tables));
    streams.Add(minidump::kModuleListStream, AppendModules(file, tables));
    streams.Add(minidump::kExceptionStream,
                AppendException(file, fault, threads.front().threadContext));
    streams.Add(minidump::kSystemInfoStream, AppendSystemInfo(file, target, tables));
    streams.Add(minidump::kMiscInfoStream, AppendMiscInfo(file, fault.process));
    streams.Add(minidump::kCommentStreamW, AppendComment(file, tables));
    streams.Add(minidump::kLinuxMapsStream,
                file.Append(tables.map.text.data(), tables.map.textLength));
    if (fullMemory) {
        streams.Add(minidump::kMemory64ListStream, AppendFullMemory(file, tables));
    }
    WriteHeader(file, streams, fullMemory);
    return file.Publish();
}

}  // namespace crash
