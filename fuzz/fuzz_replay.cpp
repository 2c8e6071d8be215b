#include <gtest/gtest.h>
#include <wx/log.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>

#include "tests/support/scratch_folder.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

// A fault aborts the process, which CTest reports with the input named last.
TEST(Fuzz, EveryInputOfTheCorpusPasses) {
    const wxLogNull quiet;
    int inputs = 0;
    for (const auto& file : std::filesystem::directory_iterator(ZELKA_CORPUS)) {
        SCOPED_TRACE(file.path().string());
        std::printf("%s\n", file.path().c_str());
        const std::string input = ReadFile(file.path());
        EXPECT_EQ(LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()),
                                         input.size()),
                  0);
        ++inputs;
    }
    EXPECT_GT(inputs, 0);
}

}  // namespace
