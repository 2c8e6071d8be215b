#include "zelka_core/system/crash_handler.h"

#include <wx/log.h>

#include "platform/crash.h"
#include "zelka_core/text.h"

namespace ZelkaCore {
namespace {

// Runs in the signal handler.
std::int32_t WriteDumpOfFault(EXCEPTION_POINTERS* fault) {
    (void)WriteCrashDump(*fault);
    return EXCEPTION_EXECUTE_HANDLER;
}

}  // namespace

void InitCrashHandler(const wxString& dumpFile, const wxString& appName, bool fullDump,
                      CrashDescription describe) {
    (void)SetUnhandledExceptionFilter(nullptr);
    if (const auto error = PrepareCrashDump({.file = ToUtf8(dumpFile),
                                             .comment = ToUtf8(appName),
                                             .fullMemory = fullDump,
                                             .describe = describe})) {
        wxLogWarning("Crash dumps cannot be written to '%s': %s", dumpFile,
                     FromUtf8(error.message()));
        return;
    }
    (void)SetUnhandledExceptionFilter(WriteDumpOfFault);
}

}  // namespace ZelkaCore
