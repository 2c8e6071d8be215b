#pragma once

#include <wx/string.h>

#include "platform/crash.h"

namespace ZelkaCore {

// From here on a fault of the process leaves a crash dump in `dumpFile` (full path; the newest dump
// replaces an older one) before the process dies of it: every thread's stack, and with `fullDump`
// all readable memory. The dump's comment is `appName`, what the fault was, and the text of
// `describe`, which runs as platform/crash.h says. Makes the file's folder with mode 0700 at once;
// if no dump could be written there, logs a warning and covers nothing.
// SetUnhandledExceptionFilter(nullptr) ends the cover.
// To be called by the main thread, whose stack overflows are told of only then.
void InitCrashHandler(const wxString& dumpFile, const wxString& appName, bool fullDump,
                      CrashDescription describe = nullptr);

}  // namespace ZelkaCore
