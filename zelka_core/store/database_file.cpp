#include "zelka_core/store/database_file.h"

#include <wx/log.h>

#include <array>
#include <ctime>
#include <string>
#include <system_error>

#include "zelka_core/text.h"

namespace fs = std::filesystem;

namespace ZelkaCore {

namespace {

void ThrowIf(std::error_code error, const fs::path& path) {
    if (error) {
        throw std::system_error(error, path.string());
    }
}

fs::path WithSuffix(const fs::path& file, const char* suffix) {
    return file.string() + suffix;
}

std::string UtcNow() {
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    (void)gmtime_r(&now, &utc);
    std::array<char, sizeof "20260131T120000Z"> text{};
    (void)std::strftime(text.data(), text.size(), "%Y%m%dT%H%M%SZ", &utc);
    return text.data();
}

fs::path FreeName(const fs::path& wanted) {
    fs::path name = wanted;
    for (int number = 2; IdentityOf(name) || IdentityOf(WithSuffix(name, "-wal")); ++number) {
        name = wanted.string() + "-" + std::to_string(number);
    }
    return name;
}

}  // namespace

std::optional<FileIdentity> IdentityOf(const fs::path& file) {
    std::optional<FileIdentity> identity;
    ThrowIf(::IdentityOf(file.string(), identity), file);
    return identity;
}

std::optional<FolderLock> LockFolder(const fs::path& folder, FolderLock::Kind kind,
                                     std::chrono::milliseconds patience) {
    std::optional<FolderLock> lock;
    const auto error = FolderLock::Take(folder.string(), kind, patience, lock);
    ThrowIf(error, error == std::errc::timed_out
                       ? fs::path(folder.string() + " is locked by another user of it")
                       : folder);
    return lock;
}

void MakePrivateFolders(const fs::path& folder) {
    std::string failed;
    const auto error = ::MakePrivateFolders(folder.string(), failed);
    ThrowIf(error, failed);
}

void MakePrivateFile(const fs::path& file) {
    ThrowIf(::MakePrivateFile(file.string()), file);
}

void MakeDatabasePrivate(const fs::path& file) {
    for (const char* suffix : {"", "-wal", "-shm"}) {
        const std::string path = WithSuffix(file, suffix).string();
        const auto error = CloseToOthers(path);
        if (error && error != std::errc::no_such_file_or_directory) {
            wxLogWarning("'%s' stays open to others: %s", FromUtf8(path),
                         FromUtf8(error.message()));
        }
    }
}

fs::path PutDatabaseAside(const fs::path& file) {
    fs::path target = FreeName(file.string() + ".damaged-" + UtcNow());
    // The database itself goes last: whatever stops this in between, the next start finds the
    // damaged database still in its place and does it again.
    for (const char* suffix : {"-wal", "-shm", ""}) {
        const fs::path source = WithSuffix(file, suffix);
        std::error_code error;
        fs::rename(source, WithSuffix(target, suffix), error);
        if (error != std::errc::no_such_file_or_directory) {
            ThrowIf(error, source);
        }
    }
    return target;
}

}  // namespace ZelkaCore
