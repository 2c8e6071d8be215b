#include "platform/move_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <utility>

#include "platform/error.h"
#include "platform/file.h"
#include "platform/tree_writer.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kTemporaryPrefix = ".pending-deletes-";
constexpr const char* kBootIdFile = "/proc/sys/kernel/random/boot_id";
constexpr unsigned kListMode = 0644;
constexpr std::size_t kLongestList = 0x100000;  // bytes

struct PendingDelete {
    std::string bootId;
    std::string name;
};
using PendingDeletes = std::vector<PendingDelete>;

std::error_code Invalid() {
    return std::make_error_code(std::errc::invalid_argument);
}

bool IsListable(const std::string& name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of("/\n") == std::string::npos;
}

// The list of a folder; no lines if there is no list. `dropped` receives the lines that make no
// sense.
std::error_code ReadList(const fs::path& folder, PendingDeletes& list,
                         std::vector<std::string>& dropped) {
    ScopedFd file;
    std::string text;
    if (const auto error = OpenRegularFile(folder / kPendingDeletesName, file)) {
        return error == std::errc::no_such_file_or_directory ? std::error_code() : error;
    }
    if (const auto error = ReadAtMost(file, kLongestList, text)) {
        return error;
    }
    if (text.size() == kLongestList) {
        return std::make_error_code(std::errc::file_too_large);
    }
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t blank = line.find(' ');
        PendingDelete entry{line.substr(0, blank),
                            blank == std::string::npos ? "" : line.substr(blank + 1)};
        if (entry.bootId.empty() || !IsListable(entry.name)) {
            dropped.push_back(line);
        } else {
            list.push_back(std::move(entry));
        }
    }
    return {};
}

// As a whole or not at all. An empty list is no file.
std::error_code WriteList(const fs::path& folder, const PendingDeletes& list) {
    if (list.empty()) {
        const bool gone = unlink((folder / kPendingDeletesName).c_str()) == 0 || errno == ENOENT;
        return gone ? std::error_code() : LastSystemError();
    }
    std::string text;
    for (const PendingDelete& entry : list) {
        text.append(entry.bootId).append(" ").append(entry.name).append("\n");
    }
    TreeWriter writer;
    std::error_code error = writer.Open(folder.string(), kTemporaryPrefix);
    error = error ? error : writer.AddFile(kPendingDeletesName, text, kListMode);
    std::string failed;
    return error ? error : writer.Commit(failed);
}

std::error_code DeleteAfterRestart(const fs::path& path) {
    const fs::path folder = path.has_parent_path() ? path.parent_path() : ".";
    const std::string name = path.filename().string();
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        return LastSystemError();
    }
    if (S_ISDIR(status.st_mode) || !IsListable(name)) {
        return Invalid();
    }
    std::string bootId;
    PendingDeletes list;
    std::vector<std::string> dropped;
    std::error_code error = CurrentBootId(bootId);
    error = error ? error : ReadList(folder, list, dropped);
    if (error) {
        return error;
    }
    std::erase_if(list, [&](const PendingDelete& entry) { return entry.name == name; });
    list.push_back({bootId, name});
    return WriteList(folder, list);
}

std::error_code Rename(const std::string& from, const std::string& to, bool replace) {
    const int result =
        replace ? rename(from.c_str(), to.c_str())
                : renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE);
    return result == 0 ? std::error_code() : LastSystemError();
}

// An empty text if the file is gone.
std::string DeleteFile(const fs::path& path) {
    if (unlink(path.c_str()) == 0 || errno == ENOENT) {
        return {};
    }
    return path.string() + " cannot be deleted: " + LastSystemError().message();
}

}  // namespace

std::error_code MoveFileExW(const std::string& from, const std::string& to, DWORD flags) {
    if (to.empty() && flags == MOVEFILE_DELAY_UNTIL_REBOOT) {
        return DeleteAfterRestart(from);
    }
    if (to.empty() || (flags & ~MOVEFILE_REPLACE_EXISTING) != 0) {
        return Invalid();
    }
    return Rename(from, to, flags == MOVEFILE_REPLACE_EXISTING);
}

std::error_code CurrentBootId(std::string& id) {
    std::ifstream file(kBootIdFile);
    std::string found;
    if (!(file >> found)) {
        return std::make_error_code(std::errc::no_message_available);
    }
    id = std::move(found);
    return {};
}

std::vector<std::string> DeletePendingFiles(const std::string& folder, const std::string& bootId) {
    PendingDeletes list;
    PendingDeletes left;
    std::vector<std::string> problems;
    const std::string path = (fs::path(folder) / kPendingDeletesName).string();
    if (const auto error = ReadList(folder, list, problems)) {
        return {path + " cannot be read: " + error.message()};
    }
    if (bootId.empty() && !list.empty()) {
        return {path + ": the id of this boot is not known"};
    }
    for (std::string& line : problems) {
        line.insert(0, path + ": the line makes no sense: ");
    }
    const bool hadNonsense = !problems.empty();
    for (const PendingDelete& entry : list) {
        std::string problem;
        if (entry.bootId != bootId) {
            problem = DeleteFile(fs::path(folder) / entry.name);
        }
        if (entry.bootId == bootId || !problem.empty()) {
            left.push_back(entry);
        }
        if (!problem.empty()) {
            problems.push_back(std::move(problem));
        }
    }
    if (left.size() != list.size() || hadNonsense) {
        if (const auto error = WriteList(folder, left)) {
            problems.push_back(path + " cannot be written: " + error.message());
        }
    }
    return problems;
}
