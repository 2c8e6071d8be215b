#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/utsname.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <type_traits>

#include "platform/bounded_text.h"
#include "platform/crash.h"
#include "platform/error.h"
#include "platform/linux/crash/minidump_writer.h"
#include "platform/linux/crash/signal_safe_calls.h"
#include "platform/private_file.h"

// The C library's clone() under its other name: ThreadSanitizer's stand-in for the first takes it
// that parent and child do not share memory.
extern "C" int __clone(  // NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
    int (*function)(void*), void* stack, int flags, void* argument, ...) noexcept;

namespace crash {
namespace {

constexpr std::size_t kHelperStackSize = std::size_t{256} * 1024;
constexpr std::time_t kReleaseLimitSeconds = 10;  // only somebody who kills that thread delays it
constexpr unsigned kSmallLimitSeconds = 60;
constexpr unsigned kFullLimitSeconds = 600;
constexpr std::size_t kHeadlineLimit = 1024;  // bytes of it on standard error

// What the writing of one dump needs to know. The helper shares the memory of the faulting process.
struct DumpJob {
    const EXCEPTION_POINTERS* fault;
    Threads threads;
    bool fullMemory;
    std::atomic<std::uint32_t> released;  // 1: the helper may begin
};

// Everything that writing takes, mapped before any fault.
struct Workspace {
    DumpTarget target;
    bool fullMemory;
    DumpJob job;
    DumpTables tables;
    alignas(4096) std::array<char, 4096> helperGuard;
    alignas(4096) std::array<char, kHelperStackSize> helperStack;
};
static_assert(std::is_trivially_default_constructible_v<DumpTables>);

// Never unmapped: a thread may be about to use it. Null until the first dump is prepared.
std::atomic<Workspace*> g_workspace{nullptr};

// --- Writing. From here to WriteCrashDump() everything runs in the signal handler or the helper.
// ---

bool Write(const DumpJob& job, Workspace& workspace) {
    return WriteMinidump(*job.fault, workspace.target, job.threads, job.fullMemory,
                         workspace.tables);
}

// SIGALRM ends this process after the given time; every other signal stays blocked.
void LimitTime(unsigned seconds) {
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    (void)sigaction(SIGALRM, &action, nullptr);
    (void)sigaction(SIGCHLD, &action, nullptr);  // one that is ignored would not tell of stops
    sigset_t alarmSignal;
    (void)sigemptyset(&alarmSignal);
    (void)sigaddset(&alarmSignal, SIGALRM);
    (void)sigprocmask(SIG_UNBLOCK, &alarmSignal, nullptr);
    itimerval limit{};
    limit.it_value.tv_sec = seconds;
    (void)setitimer(ITIMER_REAL, &limit, nullptr);
}

// The helper: a process of its own, because ptrace does not stop threads of the caller's process,
// with the same memory and a copy of the descriptors and signal handlers.
int RunHelper(void* argument) {
    auto& workspace = *static_cast<Workspace*>(argument);
    // Until then the faulting thread is busy, with whom we share errno and the like; afterwards it
    // waits for our end.
    if (!AwaitNonZero(workspace.job.released, kReleaseLimitSeconds)) {
        return 1;
    }
    LimitTime(workspace.job.fullMemory ? kFullLimitSeconds : kSmallLimitSeconds);
    // The faulting process may have had all descriptors that it is allowed.
    (void)syscall(SYS_close_range, 3U, ~0U, 0U);
    return Write(workspace.job, workspace) ? 0 : 1;
}

enum class Outcome { kWritten, kFailed, kNoHelper };

Outcome WriteInHelper(Workspace& workspace) {
    workspace.job.released.store(0);
    char* const stackEnd = workspace.helperStack.data() + workspace.helperStack.size();
    // No signal at its end, no visit of the debugger, and only we wait for it.
    const pid_t helper =
        __clone(RunHelper, stackEnd, CLONE_VM | CLONE_FS | CLONE_UNTRACED, &workspace);
    if (helper < 0) {
        return Outcome::kNoHelper;
    }
    // Where only ancestors may trace, the helper needs leave.
    (void)prctl(PR_SET_PTRACER, static_cast<unsigned long>(helper), 0, 0, 0);
    SetAndWake(workspace.job.released);
    int status = 0;
    long ended = 0;
    do {
        ended = syscall(SYS_wait4, helper, &status, __WALL, nullptr);
    } while (ended < 0 && errno == EINTR);
    if (ended == helper && WIFEXITED(status) && WEXITSTATUS(status) == 0) {
        return Outcome::kWritten;
    }
    Unlink(workspace.target.temporaryPath.data());  // a helper that was killed leaves it
    return Outcome::kFailed;
}

bool WriteDump(const EXCEPTION_POINTERS& fault, Workspace& workspace) {
    workspace.job.fault = &fault;
    workspace.job.threads = Threads::kAll;
    workspace.job.fullMemory = workspace.fullMemory;
    workspace.tables.comment.isDescribing = false;
    Outcome outcome = WriteInHelper(workspace);
    if (outcome == Outcome::kWritten) {
        return true;
    }
    workspace.job.threads = Threads::kFaultingAlone;
    workspace.job.fullMemory = false;
    if (outcome == Outcome::kFailed) {
        outcome = WriteInHelper(workspace);
    }
    return outcome == Outcome::kWritten ||
           (outcome == Outcome::kNoHelper && Write(workspace.job, workspace));
}

// Tells standard error, which a service has in the journal, what has happened and where the dump
// lies: one line, with the first line of what the program says of itself.
void Announce(const DumpTarget& target, CommentText& comment) {
    std::string_view lines(comment.text.data(), comment.length);
    const auto nextLine = [&lines] {
        const std::string_view line = lines.substr(0, lines.find('\n'));
        lines.remove_prefix(std::min(line.size() + 1, lines.size()));
        return line;
    };
    std::array<char, 3 * 1024 + PATH_MAX> room{};
    BoundedText text(room.data(), room.size() - 1);
    (void)text.Add(nextLine()).Add(": ").Add(nextLine());
    if (!lines.empty()) {
        (void)text.Add("; ").Add(nextLine().substr(0, kHeadlineLimit));
    }
    (void)text.Add("; the crash dump is ").Add(target.path.data());
    room[text.Length()] = '\n';
    (void)syscall(SYS_write, STDERR_FILENO, room.data(), text.Length() + 1);
}

// --- Getting ready. From here on no code runs in the signal handler. ---

template <std::size_t N>
void CopyText(const std::string& text, std::array<char, N>& target) {
    const std::size_t length = text.copy(target.data(), target.size() - 1);
    target[length] = '\0';
}

// The folder, with what is missing of it and above it.
std::error_code MakeWritableFolder(const std::string& folder) {
    std::string failed;
    if (const auto error = MakePrivateFolders(folder, failed)) {
        return error;
    }
    const bool isWritable = access((folder + "/.").c_str(), W_OK | X_OK) == 0;
    return isWritable ? std::error_code() : LastSystemError();
}

std::string SystemVersion() {
    utsname system{};
    (void)uname(&system);
    return std::string(system.sysname) + ' ' + system.release + ' ' + system.version + ' ' +
           system.machine;
}

// The one workspace of the process; null with errno if it cannot be mapped.
Workspace* MapWorkspace() {
    if (Workspace* const existing = g_workspace.load()) {
        return existing;
    }
    void* const memory = mmap(nullptr, sizeof(Workspace), PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) {
        return nullptr;
    }
    auto* const workspace = new (memory) Workspace;
    (void)mprotect(workspace->helperGuard.data(), workspace->helperGuard.size(), PROT_NONE);
    return workspace;
}

}  // namespace
}  // namespace crash

bool WriteCrashDump(const EXCEPTION_POINTERS& fault) {
    crash::Workspace* const workspace = crash::g_workspace.load();
    if (workspace == nullptr) {
        return false;
    }
    // A process that has changed its user may not be traced until it says so.
    const int dumpable = prctl(PR_GET_DUMPABLE, 0, 0, 0, 0);
    (void)prctl(PR_SET_DUMPABLE, 1, 0, 0, 0);
    const bool written = crash::WriteDump(fault, *workspace);
    if (written) {
        crash::Announce(workspace->target, workspace->tables.comment);
    }
    (void)prctl(PR_SET_DUMPABLE, dumpable == 1 ? 1 : 0, 0, 0, 0);  // others cannot be set
    return written;
}

std::error_code PrepareCrashDump(const CrashDumpSettings& settings) {
    const std::string temporary = settings.file + ".part";
    const std::size_t slash = settings.file.rfind('/');
    if (!settings.file.starts_with('/') || slash + 1 == settings.file.size()) {
        return std::make_error_code(std::errc::invalid_argument);
    }
    if (temporary.size() >= PATH_MAX) {
        return std::make_error_code(std::errc::filename_too_long);
    }
    const std::string folder = slash == 0 ? "/" : settings.file.substr(0, slash);
    if (const auto error = crash::MakeWritableFolder(folder)) {
        return error;
    }
    crash::Workspace* const workspace = crash::MapWorkspace();
    if (workspace == nullptr) {
        return LastSystemError();
    }
    crash::CopyText(settings.file, workspace->target.path);
    crash::CopyText(temporary, workspace->target.temporaryPath);
    crash::CopyText(folder, workspace->target.folder);
    crash::CopyText(settings.comment, workspace->target.comment);
    crash::CopyText(crash::SystemVersion(), workspace->target.systemVersion);
    workspace->target.describe = settings.describe;
    workspace->target.processorCount =
        static_cast<std::uint8_t>(std::clamp(sysconf(_SC_NPROCESSORS_ONLN), 1L, 255L));
    workspace->fullMemory = settings.fullMemory;
    crash::g_workspace.store(workspace);
    return {};
}
