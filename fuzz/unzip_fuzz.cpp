#include <wx/filename.h>
#include <wx/zipstrm.h>

#include <string>

#include "fuzz/fuzz_target.h"
#include "tests/support/scratch_folder.h"
#include "zelka_core/archive/unzip.h"
#include "zelka_core/text.h"

namespace {

struct Walk {
    fs::path target;
    bool writes;
};

// Refuses what is too large for a quick run, and everything if nothing is to be written.
bool Ask(void* userData, const wxZipEntry* entry, const wxString* target) {
    const auto& walk = *static_cast<const Walk*>(userData);
    const fs::path path = ZelkaCore::ToUtf8(*target);
    Require(path == path.lexically_normal());
    Require(path.string().starts_with(walk.target.string() + "/"));
    return walk.writes && entry->GetSize() < 0x100000;
}

}  // namespace

// Whatever the archive holds: nothing lands outside the target folder, no link is made, no
// temporary file stays, and a walk that refuses everything writes nothing.
void RunOnInput(std::string_view input) {
    const ScratchFolder scratch;
    const fs::path archive = scratch.Write("archive", std::string(input));
    Walk walk{.target = scratch.Path() / "target", .writes = false};
    fs::create_directory(walk.target);

    const auto run = [&] {
        return ZelkaCore::Unzip(wxFileName(archive.string()),
                                wxFileName(walk.target.string(), wxString()), &Ask, &walk);
    };
    const bool walked = run();
    Require(fs::is_empty(walk.target));
    walk.writes = true;
    Require(!run() || walked);

    Require(std::distance(fs::directory_iterator(scratch.Path()), {}) == 2);
    for (const auto& entry : fs::recursive_directory_iterator(walk.target)) {
        Require(!entry.is_symlink() && (entry.is_directory() || entry.is_regular_file()));
        Require(!entry.path().filename().string().starts_with(".zelka-unzip-"));
    }
}
