#include "zelka_core/system/processes.h"

#include <wx/log.h>

#include <charconv>
#include <chrono>
#include <string>
#include <string_view>

#include "platform/file.h"
#include "platform/process.h"
#include "zelka_core/text.h"

namespace ZelkaCore {
namespace {

constexpr std::size_t kPidFileLimit = 64;
constexpr std::chrono::seconds kDefaultPatience{10};

std::string_view WithoutSurroundingBlanks(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r\n";
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

}  // namespace

unsigned long ReadPidFile(const wxString& path) {
    ScopedFd file;
    std::string content;
    if (OpenRegularFile(ToUtf8(path), file) || ReadAtMost(file, kPidFileLimit + 1, content) ||
        content.size() > kPidFileLimit) {
        return 0;
    }
    const std::string_view number = WithoutSurroundingBlanks(content);
    unsigned long pid = 0;
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), pid);
    const bool whole = error == std::errc() && end == number.data() + number.size();
    return whole && IsProcessId(pid) ? pid : 0;
}

wxString GetCommandLineW(unsigned long pid) {
    const ProcessCommand command = CommandOf(pid);
    // Each for itself, so that bytes in an argument cannot change how the path is read.
    return FromUtf8(command.executable) + FromUtf8(command.arguments);
}

bool KillProcess(unsigned long pid, int patience) {
    const std::chrono::milliseconds given{patience};
    if (const auto error = StopProcess(pid, patience < 0 ? kDefaultPatience : given)) {
        wxLogWarning("Process %lu was not stopped: %s", pid, FromUtf8(error.message()));
        return false;
    }
    return true;
}

}  // namespace ZelkaCore
