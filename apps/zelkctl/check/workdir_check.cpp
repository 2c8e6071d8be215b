#include <filesystem>
#include <system_error>

#include "apps/zelkctl/check/checks.h"
#include "zelka_core/text.h"

namespace fs = std::filesystem;
using ZelkaCore::ToUtf8;

void CheckWorkdir(const Start& start, Findings& findings) {
    const Workdir& workdir = start.workdir;
    const std::string folder = ToUtf8(workdir.folder);
    if (!workdir.problem.empty()) {
        if (workdir.registryLine == 0) {
            findings.Error(folder, ToUtf8(workdir.problem));
        }
        return;
    }
    std::error_code error;
    const fs::file_status status = fs::status(folder, error);
    if (status.type() == fs::file_type::not_found) {
        return findings.Warning(folder, "the working folder is not there; a start makes it");
    }
    if (error) {
        return findings.Error(folder, error.message());
    }
    const auto may = [&](fs::perms rights) {
        return (status.permissions() & rights) != fs::perms::none;
    };
    if (may(fs::perms::others_write)) {
        findings.Error(folder, "everybody may write to the working folder");
    } else if (may(fs::perms::group_write)) {
        findings.Error(folder, "its group may write to the working folder");
    } else if (may(fs::perms::group_all | fs::perms::others_all)) {
        findings.Warning(folder,
                         "others may look into the working folder, until a start closes it");
    }
}
