#pragma once

#include <wx/string.h>

#include <vector>

// The trace: diagnostic lines that are written only while their module is enabled. They go to the
// same file as the log (log_file.h). Every function may be called from any thread.

namespace ZelkaCore {

// True while `module` is enabled. Takes no lock.
bool LogTraceIsEnabled(const wxString& module);

// Writes one trace line, enabled or not, with its position in the source: the file's name without
// its folder, the line, and the qualified name of the function.
void LogTrace(const wxString& module, const char* file, int line, const char* function,
              const wxString& message);

// The enabled modules are those named last by SetTraceModules together with all that
// AddTraceModules has named since ClearAddedTraceModules. RemoveTraceModules takes one
// AddTraceModules of the same modules back: what was added more often stays. `modules` is a list of
// names separated by commas; blanks around a name do not count.
// SwitchTraceModule goes before both, whatever was or will be named: a decision of the operator.
void SetTraceModules(const wxString& modules);
void AddTraceModules(const wxString& modules);
void RemoveTraceModules(const wxString& modules);
void ClearAddedTraceModules();
void SwitchTraceModule(const wxString& module, bool on);

// Sorted by name.
std::vector<wxString> EnabledTraceModules();

}  // namespace ZelkaCore

// A trace line that costs nothing but the test while its module is off: the text, given like that
// of wxString::Format, is formatted only when it is wanted.
#define ZELKA_TRACE(module, function, ...)                                      \
    do {                                                                        \
        const wxString zelkaTraceModule(module);                                \
        if (ZelkaCore::LogTraceIsEnabled(zelkaTraceModule)) {                   \
            ZelkaCore::LogTrace(zelkaTraceModule, __FILE__, __LINE__, function, \
                                wxString::Format(__VA_ARGS__));                 \
        }                                                                       \
    } while (false)
