#include <algorithm>
#include <cstdio>
#include <string>

#include "fuzz/fuzz_target.h"
#include "platform/file.h"
#include "zelka_core/system/crash_report.h"
#include "zelka_core/text.h"

// What is no dump has a reason and changes nothing. What is one has bounded texts that are UTF-8,
// and is the same dump whatever stands behind its end.
void RunOnInput(std::string_view input) {
    constexpr std::size_t kLongest = std::size_t{100} * 1024;  // of a text
    std::string bytes(input);
    ZelkaCore::CrashReport reports[2];
    std::string fault;
    for (auto& report : reports) {
        const FileStream file(fmemopen(bytes.data(), bytes.size(), "rb"));
        report.lua = "untouched";
        if (!file || !ZelkaCore::ReadCrashReport(file.get(), report, fault)) {
            Require(report.lua == "untouched" && (!file || !fault.empty()));
            return;
        }
        bytes += "more";
    }
    for (const auto* text : {&reports[0].application, &reports[0].fault, &reports[0].lua,
                             &reports[0].module, &reports[0].signalName}) {
        Require(text->size() <= kLongest && ZelkaCore::IsValidUtf8(*text));
    }
    Require(reports[0].lua == reports[1].lua && reports[0].module == reports[1].module &&
            reports[0].process == reports[1].process && reports[0].time == reports[1].time);
}
