#include "zelka_core/system/secure_path.h"

#include <wx/log.h>

#include <filesystem>
#include <string>
#include <system_error>

#include "platform/private_file.h"
#include "zelka_core/text.h"

namespace ZelkaCore {
namespace {

namespace fs = std::filesystem;

// A slash behind the last name would make the system follow a link of that name.
std::string WithoutTrailingSlashes(const wxString& path) {
    std::string text = ToUtf8(path);
    while (text.size() > 1 && text.back() == '/') {
        text.pop_back();
    }
    return text;
}

void Warn(const std::string& path, const std::string& reason) {
    wxLogWarning("'%s' could not be secured: %s", FromUtf8(path), FromUtf8(reason));
}

void Secure(const std::string& path) {
    if (const auto error = MakePrivate(path)) {
        Warn(path, error.message());
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
    return IsPrivate(WithoutTrailingSlashes(path));
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
