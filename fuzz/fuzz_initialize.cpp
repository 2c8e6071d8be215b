#include <wx/init.h>
#include <wx/log.h>

#include <cstdlib>

#include "platform/process_setup.h"

// A fuzz target runs under the same settings as the agent: UTF-8 text, assertions off. What is
// logged about bad input is no finding. Scratch folders are in memory, where a run waits for no
// disk.
extern "C" int LLVMFuzzerInitialize(int*, char***);

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    PinTextEncoding();
    wxTheAssertHandler = nullptr;
    static const wxInitializer framework;
    wxLog::EnableLogging(false);
    (void)setenv("TMPDIR", "/dev/shm", 0);
    return 0;
}
