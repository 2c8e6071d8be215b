#include <gtest/gtest.h>
#include <wx/init.h>
#include <wx/log.h>

#include "platform/process_setup.h"

// Test programs run under the same text settings as the agent, and with assertions off like it.
int main(int argc, char** argv) {
    PinTextEncoding();
    wxTheAssertHandler = nullptr;
    const wxInitializer framework;
    wxLog::SetActiveTarget(new wxLogStderr);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
