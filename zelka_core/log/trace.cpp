#include "zelka_core/log/trace.h"

#include <wx/datetime.h>
#include <wx/filename.h>
#include <wx/tokenzr.h>

#include <algorithm>
#include <atomic>
#include <deque>

#include "platform/process.h"
#include "zelka_core/log/log_file.h"
#include "zelka_core/mutex.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

// One module that was ever named. Modules are kept in a list that only grows, so that a reader can
// walk it without a lock while another thread appends.
struct Module {
    explicit Module(const wxString& moduleName) : name(moduleName) {}

    const wxString name;
    std::atomic<bool> listed = false;  // by the last SetTraceModules
    std::atomic<unsigned> added = 0;   // how often, by AddTraceModules
    enum class Switch { kNone, kOn, kOff };
    std::atomic<Switch> switched = Switch::kNone;
    std::atomic<Module*> next = nullptr;

    [[nodiscard]] bool IsEnabled() const {
        const Switch byOperator = switched.load(std::memory_order_relaxed);
        return byOperator != Switch::kNone ? byOperator == Switch::kOn
                                           : listed.load(std::memory_order_relaxed) ||
                                                 added.load(std::memory_order_relaxed) != 0;
    }
};

std::atomic<Module*> g_modules = nullptr;
Mutex g_writers;

Module* FindModule(const wxString& name) {
    Module* module = g_modules.load(std::memory_order_acquire);
    while (module != nullptr && module->name != name) {
        module = module->next.load(std::memory_order_acquire);
    }
    return module;
}

// Finds the module or puts it at the front of the list. It is never freed.
Module& GetModule(const wxString& name) ZELKA_REQUIRES(g_writers) {
    if (Module* module = FindModule(name)) {
        return *module;
    }
    auto* module = new Module(name);
    module->next = g_modules.load();
    g_modules.store(module, std::memory_order_release);
    return *module;
}

template <class Change>
void ForEach(const wxString& modules, const Change& change) ZELKA_REQUIRES(g_writers) {
    wxStringTokenizer names(modules, ",", wxTOKEN_STRTOK);
    while (names.HasMoreTokens()) {
        const wxString name = names.GetNextToken().Trim(true).Trim(false);
        if (!name.empty()) {
            change(GetModule(name));
        }
    }
}

template <class Change>
void ForEach(const Change& change) ZELKA_REQUIRES(g_writers) {
    for (Module* module = g_modules; module != nullptr; module = module->next) {
        change(*module);
    }
}

}  // namespace

bool LogTraceIsEnabled(const wxString& module) {
    const Module* found = FindModule(module);
    return found != nullptr && found->IsEnabled();
}

void LogTrace(const wxString& module, const char* file, int line, const char* function,
              const wxString& message) {
    const wxString time = wxDateTime::UNow().Format("%Y-%m-%d %H:%M:%S.%l");
    const wxString position = wxFileName(wxString::FromUTF8(file)).GetFullName();
    const wxString text =
        wxString::Format("%s trace   %s [%ld] %s %s:%d %s", time, module, CurrentThreadNumber(),
                         wxString::FromUTF8(function), position, line, message);
    WriteLogLine(ToUtf8(text));
}

void SetTraceModules(const wxString& modules) {
    const MutexLock lock(g_writers);
    ForEach([](Module& module) { module.listed = false; });
    ForEach(modules, [](Module& module) { module.listed = true; });
}

void AddTraceModules(const wxString& modules) {
    const MutexLock lock(g_writers);
    ForEach(modules, [](Module& module) { ++module.added; });
}

void RemoveTraceModules(const wxString& modules) {
    const MutexLock lock(g_writers);
    ForEach(modules, [](Module& module) {
        if (module.added != 0) {
            --module.added;
        }
    });
}

void ClearAddedTraceModules() {
    const MutexLock lock(g_writers);
    ForEach([](Module& module) { module.added = 0; });
}

void SwitchTraceModule(const wxString& module, bool on) {
    const MutexLock lock(g_writers);
    GetModule(module).switched = on ? Module::Switch::kOn : Module::Switch::kOff;
}

std::vector<wxString> EnabledTraceModules() {
    std::vector<wxString> names;
    const MutexLock lock(g_writers);
    ForEach([&](const Module& module) {
        if (module.IsEnabled()) {
            names.push_back(module.name);
        }
    });
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace ZelkaCore
