#include "zelka_core/system/secure_path.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <wx/log.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>

#include "platform/scoped_fd.h"
#include "zelka_core/text.h"

namespace ZelkaCore {
namespace {

namespace fs = std::filesystem;

constexpr mode_t kPermissionBits = 07777;

// A slash behind the last name would make the system follow a link of that name.
std::string WithoutTrailingSlashes(const wxString& path) {
    std::string text = ToUtf8(path);
    while (text.size() > 1 && text.back() == '/') {
        text.pop_back();
    }
    return text;
}

// The permissions of a secured file of this type; 0 for a type that is not to be secured.
mode_t SecuredMode(const struct stat& status) {
    if (S_ISDIR(status.st_mode)) {
        return S_IRWXU;
    }
    return S_ISREG(status.st_mode) ? S_IRUSR | S_IWUSR : 0;
}

bool IsSecured(const struct stat& status) {
    const mode_t secured = SecuredMode(status);
    return secured != 0 && status.st_uid == geteuid() &&
           (status.st_mode & kPermissionBits) == secured;
}

void Warn(const std::string& path, const std::string& reason) {
    wxLogWarning("'%s' could not be secured: %s", FromUtf8(path), FromUtf8(reason));
}

void WarnOfSystemError(const std::string& path, int code) {
    Warn(path, std::generic_category().message(code));
}

// Works on what is opened here, not on the name, which may lead elsewhere a moment later. The
// descriptor gives no access to the content, so that it can be had whatever the permissions are.
void Secure(const std::string& path) {
    const ScopedFd file(open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status = {};
    if (!file.IsOpen() || fstat(file.Get(), &status) != 0) {
        return WarnOfSystemError(path, errno);
    }
    if (SecuredMode(status) == 0) {
        return Warn(path, "neither a folder nor a regular file");
    }
    // The owner goes first: the old one could take the permissions back.
    if (status.st_uid != geteuid() &&
        fchownat(file.Get(), "", geteuid(), static_cast<gid_t>(-1), AT_EMPTY_PATH) != 0) {
        return WarnOfSystemError(path, errno);
    }
    // Such a descriptor is refused by fchmod(); its name below /proc leads to the same file.
    const std::string self = "/proc/self/fd/" + std::to_string(file.Get());
    if (chmod(self.c_str(), SecuredMode(status)) != 0) {
        WarnOfSystemError(path, errno);
    }
}

// A folder is secured before its listing is read, as the iterator enters it with the next step. One
// that may not be read is one whose warning was given already.
void SecureEverythingBelow(const std::string& folder) {
    std::error_code error;
    fs::recursive_directory_iterator entry(folder, fs::directory_options::skip_permission_denied,
                                           error);
    while (!error && entry != fs::recursive_directory_iterator()) {
        std::error_code ignored;
        if (!entry->is_symlink(ignored)) {
            Secure(entry->path().string());
        }
        entry.increment(error);
    }
    if (error) {
        Warn(folder, "not everything below it was reached: " + error.message());
    }
}

}  // namespace

bool IsSecuredFileOrDirectory(const wxString& path) {
    struct stat status = {};
    return lstat(WithoutTrailingSlashes(path).c_str(), &status) == 0 && IsSecured(status);
}

void SecureFileOrDirectory(const wxString& path, bool recursive) {
    const std::string top = WithoutTrailingSlashes(path);
    Secure(top);
    std::error_code ignored;
    if (recursive && fs::is_directory(fs::symlink_status(top, ignored))) {
        SecureEverythingBelow(top);
    }
}

}  // namespace ZelkaCore
