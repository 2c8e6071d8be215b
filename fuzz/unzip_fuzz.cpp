#include <wx/filename.h>
#include <wx/zipstrm.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/support/scratch_folder.h"
#include "zelka_core/archive/unzip.h"
#include "zelka_core/text.h"

namespace fs = std::filesystem;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

wxFileName NameOf(const fs::path& path, bool isFolder) {
    const wxString text = ZelkaCore::FromUtf8(path.string());
    return isFolder ? wxFileName(text, wxString()) : wxFileName(text);
}

struct Walk {
    fs::path target;
    bool writes;
};

// Refuses what is too large for a quick run, and everything if nothing is to be written.
bool Ask(void* userData, const wxZipEntry* entry, const wxString* target) {
    const auto& walk = *static_cast<const Walk*>(userData);
    const fs::path path = ZelkaCore::ToUtf8(*target);
    if (path != path.lexically_normal() || !path.string().starts_with(walk.target.string() + "/")) {
        std::abort();
    }
    return walk.writes && entry->GetSize() < 0x100000;
}

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

}  // namespace

// Whatever the archive holds: nothing lands outside the target folder, no link is made, no
// temporary file stays, and a walk that refuses everything writes nothing.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const ScratchFolder scratch;
    const fs::path archive = scratch.Path() / "archive";
    std::ofstream(archive, std::ios::binary)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    Walk walk{.target = scratch.Path() / "target", .writes = false};
    fs::create_directory(walk.target);

    const auto run = [&] {
        return ZelkaCore::Unzip(NameOf(archive, false), NameOf(walk.target, true), &Ask, &walk);
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
    return 0;
}
