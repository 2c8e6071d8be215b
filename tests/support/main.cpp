#include <gtest/gtest.h>
#include <wx/init.h>
#include <wx/log.h>

#include "platform/process_setup.h"

// Test programs run under the same settings of text, assertions and log as the agent.
int main(int argc, char** argv) {
    PinTextEncoding();
    wxTheAssertHandler = nullptr;
    const wxInitializer framework;
    wxLog::SetActiveTarget(new wxLogStderr);
    wxLog::SetVerbose(true);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
