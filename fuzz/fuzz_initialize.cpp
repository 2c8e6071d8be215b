#include <wx/init.h>
#include <wx/log.h>

#include <cstddef>
#include <cstdint>

#include "fuzz/fuzz_target.h"
#include "platform/process_setup.h"

// A fuzz target runs under the same settings as the agent: UTF-8 text, assertions off. What is
// logged about bad input is no finding. Scratch folders are in memory, where a run waits for no
// disk.
extern "C" int LLVMFuzzerInitialize(int*, char***);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    PinTextEncoding();
    wxTheAssertHandler = nullptr;
    static const wxInitializer framework;
    wxLog::EnableLogging(false);
    (void)setenv("TMPDIR", "/dev/shm", 0);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    RunOnInput({reinterpret_cast<const char*>(data), size});
    return 0;
}
