#include "platform/linux/registry/registry_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <wx/log.h>
#include <wx/strconv.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <set>
#include <string_view>
#include <system_error>

#include "platform/linux/registry/registry_text.h"
#include "platform/scoped_fd.h"

namespace {

namespace fs = std::filesystem;

constexpr off_t kSizeLimit = 1'048'576;
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

std::optional<std::string> Refuse(const std::string& path, const std::string& reason) {
    const std::string message = path + ": the registry counts as empty: " + reason;
    WarnOnce(message, message);
    return std::nullopt;
}

void WarnOfMalformedLines(const std::string& path, std::string_view content) {
    RegistryReader reader(content);
    while (reader.Next()) {
        const RegistryReader::Line& line = reader.Current();
        if (line.kind == RegistryReader::Kind::Malformed) {
            std::string fault = path;
            fault.append("\n").append(line.problem).append(line.text.substr(0, kToldApartBy));
            WarnOnce(fault, path + ':' + std::to_string(line.number) +
                                ": the line is skipped: " + line.problem);
        }
    }
}

// Reads to the end of the file, at most one byte more than is allowed. An error code, 0 for
// success.
int ReadAll(int fd, std::string& content) {
    content.resize(static_cast<std::size_t>(kSizeLimit) + 1);
    std::size_t length = 0;
    while (length < content.size()) {
        const ssize_t count = read(fd, content.data() + length, content.size() - length);
        if (count == 0) {
            break;
        }
        if (count < 0 && errno != EINTR) {
            return errno;
        }
        length += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    content.resize(length);
    return 0;
}

int WriteAll(int fd, std::string_view content) {
    while (!content.empty()) {
        const ssize_t count = write(fd, content.data(), content.size());
        if (count < 0 && errno != EINTR) {
            return errno;
        }
        content.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    return 0;
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

    int Fill(const struct stat& original, std::string_view content) {
        if (!m_file.IsOpen() || fchown(m_file.Get(), original.st_uid, original.st_gid) != 0 ||
            fchmod(m_file.Get(), original.st_mode & 07777) != 0) {
            return errno;
        }
        const int code = WriteAll(m_file.Get(), content);
        if (code != 0) {
            return code;
        }
        return fsync(m_file.Get()) == 0 ? 0 : errno;
    }

    int PutInPlace() {
        if (rename(m_name.c_str(), m_target.c_str()) != 0) {
            return errno;
        }
        m_file.Reset();
        // So that the new name lasts, too. The replacement has happened whatever this answers.
        const ScopedFd folder(
            open(m_target.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        (void)fsync(folder.Get());
        return 0;
    }

  private:
    fs::path m_target;
    std::string m_name;
    ScopedFd m_file;
};

}  // namespace

std::string RegistryFilePath() {
    const char* chosen = std::getenv("ZELKA_REGISTRY");
    return chosen != nullptr && *chosen != '\0' ? chosen : "/etc/zelka/registry.ini";
}

std::optional<std::string> ReadRegistryFile(const std::string& path) {
    const ScopedFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file.IsOpen() && (errno == ENOENT || errno == ENOTDIR)) {
        return std::string();
    }
    struct stat status = {};
    if (!file.IsOpen() || fstat(file.Get(), &status) != 0) {
        return Refuse(path, std::generic_category().message(errno));
    }
    if (!S_ISREG(status.st_mode)) {
        return Refuse(path, "it is not a regular file");
    }
    std::string content;
    if (const int code = ReadAll(file.Get(), content); code != 0) {
        return Refuse(path, std::generic_category().message(code));
    }
    if (content.size() > static_cast<std::size_t>(kSizeLimit)) {
        return Refuse(path, "it is larger than 1 MiB");
    }
    WarnOfMalformedLines(path, content);
    return content;
}

bool CanReplaceRegistryFile(const std::string& path) {
    std::error_code error;
    const fs::path target = fs::canonical(path, error);
    return !error && faccessat(AT_FDCWD, target.parent_path().c_str(), W_OK, AT_EACCESS) == 0;
}

int ReplaceRegistryFile(const std::string& path, const std::string& content) {
    std::error_code error;
    const fs::path target = fs::canonical(path, error);
    struct stat original = {};
    if (error || stat(target.c_str(), &original) != 0) {
        return error ? error.value() : errno;
    }
    Replacement replacement(target);
    const int code = replacement.Fill(original, content);
    return code != 0 ? code : replacement.PutInPlace();
}
