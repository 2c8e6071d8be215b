#include "platform/linux/registry/registry_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <wx/log.h>
#include <wx/strconv.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <set>
#include <string_view>
#include <system_error>

#include "platform/error.h"
#include "platform/file.h"
#include "platform/linux/registry/registry_text.h"
#include "platform/regkey.h"
#include "platform/scoped_fd.h"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kSizeLimit = 1'048'576;
constexpr std::size_t kMostWarnings = 100;
constexpr std::size_t kToldApartBy = 200;  // bytes of two malformed lines

// Warns, unless `fault` was told before or too many others were.
void WarnOnce(const std::string& fault, const std::string& message) {
    static std::mutex mutex;
    static std::set<std::string> told;
    std::size_t count = 0;
    {
        const std::lock_guard lock(mutex);
        if (told.size() > kMostWarnings || !told.insert(fault).second) {
            return;
        }
        count = told.size();
    }
    if (count <= kMostWarnings) {
        // A path may hold any bytes.
        const wxMBConvUTF8 lenient(wxMBConvUTF8::MAP_INVALID_UTF8_TO_OCTAL);
        wxLogWarning("%s", wxString(message.c_str(), lenient));
    } else {
        wxLogWarning("There is more wrong with the registry; no more of it is told");
    }
}

// The content as it is; empty for a missing file. Nothing, with the reason, if it cannot be had.
std::optional<std::string> ReadContent(const std::string& path, std::string& reason) {
    ScopedFd file;
    std::string content;
    auto error = OpenRegularFile(path, file);
    if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory) {
        return content;
    }
    error = error ? error : ReadAtMost(file, kSizeLimit + 1, content);
    if (!error && content.size() <= kSizeLimit) {
        return content;
    }
    reason = "the registry counts as empty: " +
             (error ? error.message() : std::string("it is larger than 1 MiB"));
    return std::nullopt;
}

std::vector<RegistryReader::Line> MalformedLines(std::string_view content) {
    std::vector<RegistryReader::Line> lines;
    RegistryReader reader(content);
    while (reader.Next()) {
        if (reader.Current().kind == RegistryReader::Kind::Malformed) {
            lines.push_back(reader.Current());
        }
    }
    return lines;
}

std::string Problem(const RegistryReader::Line& line) {
    return std::string("the line is skipped: ") + line.problem;
}

void WarnOfMalformedLines(const std::string& path, std::string_view content) {
    for (const RegistryReader::Line& line : MalformedLines(content)) {
        std::string fault = path;
        fault.append("\n").append(line.problem).append(line.text.substr(0, kToldApartBy));
        WarnOnce(fault, path + ':' + std::to_string(line.number) + ": " + Problem(line));
    }
}

// A new file beside the one that it will replace; it goes again unless it does.
class Replacement {
  public:
    explicit Replacement(const fs::path& target)
        : m_target(target),
          m_name(target.parent_path() / ("." + target.filename().string() + ".XXXXXX")),
          m_file(mkostemp(m_name.data(), O_CLOEXEC)) {}
    ~Replacement() {
        if (m_file.IsOpen()) {
            (void)unlink(m_name.c_str());
        }
    }
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    std::error_code Fill(const struct stat& original, std::string_view content) {
        if (!m_file.IsOpen() || fchown(m_file.Get(), original.st_uid, original.st_gid) != 0 ||
            fchmod(m_file.Get(), original.st_mode & 07777) != 0) {
            return LastSystemError();
        }
        if (const auto error = WriteAll(m_file, content)) {
            return error;
        }
        return fsync(m_file.Get()) == 0 ? std::error_code() : LastSystemError();
    }

    std::error_code PutInPlace() {
        if (rename(m_name.c_str(), m_target.c_str()) != 0) {
            return LastSystemError();
        }
        m_file.Reset();
        // So that the new name lasts, too. The replacement has happened whatever this answers.
        const ScopedFd folder(
            open(m_target.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        (void)fsync(folder.Get());
        return {};
    }

  private:
    fs::path m_target;
    std::string m_name;
    ScopedFd m_file;
};

// Constant once there are threads.
std::string& ChosenPath() {
    static std::string path;
    return path;
}

}  // namespace

void UseRegistryFile(const std::string& path) {
    ChosenPath() = path;
}

const std::string& RegistryFilePath() {
    return ChosenPath();
}

std::optional<std::string> ReadRegistryFile(const std::string& path) {
    std::string reason;
    auto content = ReadContent(path, reason);
    if (content) {
        WarnOfMalformedLines(path, *content);
    } else {
        const std::string message = path + ": " + reason;
        WarnOnce(message, message);
    }
    return content;
}

std::vector<RegistryFault> RegistryFaults() {
    std::string reason;
    const auto content = ReadContent(RegistryFilePath(), reason);
    if (!content) {
        return {{.line = 0, .text = reason}};
    }
    const auto lines = MalformedLines(*content);
    std::vector<RegistryFault> faults;
    faults.reserve(lines.size());
    for (const RegistryReader::Line& line : lines) {
        faults.push_back({.line = line.number, .text = Problem(line)});
    }
    return faults;
}

bool CanReplaceRegistryFile(const std::string& path) {
    std::error_code error;
    const fs::path target = fs::canonical(path, error);
    return !error && faccessat(AT_FDCWD, target.parent_path().c_str(), W_OK, AT_EACCESS) == 0;
}

std::error_code ReplaceRegistryFile(const std::string& path, const std::string& content) {
    std::error_code error;
    const fs::path target = fs::canonical(path, error);
    if (error) {
        return error;
    }
    struct stat original = {};
    if (stat(target.c_str(), &original) != 0) {
        return LastSystemError();
    }
    Replacement replacement(target);
    error = replacement.Fill(original, content);
    return error ? error : replacement.PutInPlace();
}
