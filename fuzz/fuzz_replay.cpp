#include <gtest/gtest.h>
#include <wx/log.h>

#include "fuzz/fuzz_target.h"
#include "tests/support/scratch_folder.h"

namespace {

// A fault aborts the process, which CTest reports with the input named last.
TEST(Fuzz, EveryInputOfTheCorpusPasses) {
    const wxLogNull quiet;
    ASSERT_FALSE(fs::is_empty(ZELKA_CORPUS));
    for (const auto& file : fs::directory_iterator(ZELKA_CORPUS)) {
        std::printf("%s\n", file.path().c_str());
        RunOnInput(ReadFile(file.path()));
    }
}

}  // namespace
