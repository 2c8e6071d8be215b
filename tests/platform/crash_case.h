#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "platform/file.h"
#include "platform/minidump_format.h"
#include "tests/support/scratch_folder.h"
#include "zelka_core/system/crash_handler.h"
#include "zelka_core/system/crash_report.h"

// What the tests of crash dumps share: ways to fault, and processes that do so.

namespace faults {

// Memory that nobody may touch. A null pointer would be a sanitizer's find.
inline volatile int* g_lockedPage = nullptr;

void TouchLockedPage();
int RecurseForEver(int depth);
void Limit(__rlimit_resource resource, rlim_t limit);

// From here on the system answers one kind of call with an error code, while another thread waits.
void Refuse(unsigned systemCall, unsigned code);

}  // namespace faults

inline constexpr bool kSanitizer = *SANITIZERS != '\0';

template <typename Record>
Record At(const std::string& bytes, std::size_t offset) {
    Record record{};
    if (offset + sizeof record <= bytes.size()) {
        std::memcpy(&record, bytes.data() + offset, sizeof record);
    }
    return record;
}

class CrashDump : public testing::Test {
  protected:
    // The signal that a child process dies of by a fault after `before`, or -(exit status).
    [[nodiscard]] int Crash(const std::function<void()>& before, bool isFull = false) const {
        const pid_t child = fork();
        if (child == 0) {
            faults::Limit(RLIMIT_CORE, 0);
            (void)alarm(120);  // a hang ends as another signal than the one that is expected
            (void)!std::freopen((m_scratch.Path() / "errors").c_str(), "w", stderr);
            faults::g_lockedPage = static_cast<volatile int*>(
                mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
            ZelkaCore::InitCrashHandler(File().wstring(), L"z\u00fcndel", isFull);
            before();
            faults::TouchLockedPage();
            _exit(0);
        }
        int status = 0;
        (void)waitpid(child, &status, 0);
        return WIFSIGNALED(status) ? WTERMSIG(status) : -WEXITSTATUS(status);
    }

    // What a debugger shows of the dump's threads; nothing if there is no debugger.
    [[nodiscard]] std::string Backtraces() const {
        const std::string shown = (m_scratch.Path() / "shown").string();
        const std::string command = "lldb --no-lldbinit -b -o 'thread backtrace -c 20 all' -c " +
                                    File().string() + " " +
                                    fs::read_symlink("/proc/self/exe").string() + " >" + shown;
        (void)!std::system((command + " 2>/dev/null").c_str());  // NOLINT(cert-env33-c)
        return ReadFile(shown);
    }

    [[nodiscard]] fs::path Folder() const { return m_scratch.Path() / "work/diag"; }
    [[nodiscard]] fs::path File() const { return Folder() / "agent.mdmp"; }

    // The streams of the dump, as a reader of the format finds them; none if there is no dump.
    [[nodiscard]] std::map<std::uint32_t, std::string> Streams() const {
        const std::string bytes = ReadFile(File());
        std::map<std::uint32_t, std::string> streams;
        const auto header = At<crash::minidump::Header>(bytes, 0);
        for (std::uint32_t i = 0; i < header.numberOfStreams; ++i) {
            const auto entry =
                At<crash::minidump::Directory>(bytes, header.streamDirectoryRva + i * 12);
            streams[entry.streamType] = bytes.substr(entry.location.rva, entry.location.dataSize);
        }
        EXPECT_TRUE(bytes.empty() || header.signature == crash::minidump::kSignature);
        return streams;
    }
    // What a tool without a debugger finds; an empty report and the reason if it finds nothing.
    [[nodiscard]] ZelkaCore::CrashReport Report() const {
        ZelkaCore::CrashReport report;
        FileStream file;
        EXPECT_FALSE(OpenRegularStream(File().string(), file));
        EXPECT_TRUE(file && ZelkaCore::ReadCrashReport(file.get(), report, report.fault))
            << report.fault;
        return report;
    }
    void Describe(CrashDescription describe) const {
        ZelkaCore::InitCrashHandler(File().wstring(), "app", false, describe);
    }
    [[nodiscard]] crash::minidump::Exception Exception() const {
        return At<crash::minidump::ExceptionStream>(Streams()[crash::minidump::kExceptionStream], 0)
            .exception;
    }
    [[nodiscard]] std::uint32_t ThreadCount() const {
        return At<std::uint32_t>(Streams()[crash::minidump::kThreadListStream], 0);
    }
    [[nodiscard]] long FileCount() const {
        return std::distance(fs::directory_iterator(Folder()), {});
    }

    const ScratchFolder m_scratch;
};
