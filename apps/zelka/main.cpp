#include <wx/init.h>
#include <wx/log.h>

#include <cstdio>

#include "apps/zelka/host/raw_arguments.h"
#include "apps/zelka/zelka.h"
#include "platform/process_setup.h"
#include "platform/service.h"

wxIMPLEMENT_APP_NO_MAIN(CAgentApp);

int main(int argc, char** argv) {
    OccupyStandardDescriptors();
    BlockServiceSignals(CAgentApp::DescribeService());  // before there is any other thread
    wxTheAssertHandler = nullptr;
    wxLog::SetLogLevel(wxLOG_Info);
    PinTextEncoding();
    // What a script prints reaches a pipe line by line, and stays in order with standard error.
    (void)std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);

    KeepRawArguments(argc, argv);
    if (const auto invalid = FirstInvalidOption()) {
        (void)std::fprintf(stderr, "%s: argument %zu is not valid UTF-8\n", argv[0], *invalid);
        return -1;
    }
    return wxEntry(argc, FrameworkArguments());
}
