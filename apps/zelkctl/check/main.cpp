// What `zelkctl check` becomes: looks at what a start of the agent would read, and tells what is
// wrong with it.
//
//   zelkctl_check WORKDIR text|json [WORD...]
//
// The words are the command whose start is looked at; without any it is the service's.

#include <wx/init.h>
#include <wx/log.h>

#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include "apps/start/configuration.h"
#include "apps/start/registry_file.h"
#include "apps/zelkctl/check/checks.h"
#include "apps/zelkctl/output.h"
#include "apps/zelkctl/reply.h"
#include "apps/zelkctl/table.h"
#include "apps/zelkctl/zelkctl.h"
#include "platform/process_setup.h"
#include "platform/regkey.h"

using ZelkaCore::Json;

namespace {

constexpr auto kError = Finding::Severity::kError;
constexpr auto kWarning = Finding::Severity::kWarning;

const char* NameOf(Finding::Severity severity) {
    return severity == kError ? "error" : "warning";
}

Json ToJson(const Finding& finding) {
    return Json{{"severity", NameOf(finding.severity)},
                {"file", finding.file.empty() ? Json() : Json(finding.file)},
                {"line", finding.line == 0 ? Json() : Json(finding.line)},
                {"text", finding.text}};
}

void PrintForPrograms(const StartCommand& command, const Findings& findings) {
    Json list = Json::array();
    for (const Finding& finding : findings.All()) {
        list.push_back(ToJson(finding));
    }
    PrintJson(Json{{"command", command.words},
                   {"findings", std::move(list)},
                   {"errors", findings.Count(kError)},
                   {"warnings", findings.Count(kWarning)}});
}

// "2 errors"; nothing for none.
std::string Counted(std::size_t count, const char* what) {
    return count == 0 ? "" : std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string Place(const Finding& finding) {
    if (finding.file.empty()) {
        return kNotTold;
    }
    return Shown(finding.file) + (finding.line == 0 ? "" : ":" + std::to_string(finding.line));
}

void PrintForPeople(const Findings& findings) {
    Table table;
    for (const Finding& finding : findings.All()) {
        const Tone tone = finding.severity == kError ? Tone::kBad : Tone::kWarning;
        table.Add({{NameOf(finding.severity), tone}, Place(finding), Shown(finding.text)});
    }
    Print(table.Take());
    const std::string errors = Counted(findings.Count(kError), "error");
    const std::string warnings = Counted(findings.Count(kWarning), "warning");
    const std::string both = errors + (errors.empty() || warnings.empty() ? "" : ", ") + warnings;
    PrintLine(both.empty() ? Toned("nothing found", Tone::kGood) : both);
}

// The agent of the installation that this program belongs to, in whose folder `lib` it lies.
std::string OwnAgent() {
    std::string self;
    (void)GetModuleFileNameW(self);
    const auto folder = std::filesystem::path(self).parent_path().parent_path();
    return (folder / kDefaultApplication).string();
}

StartCommand CommandOf(const std::string& workdir, const std::vector<std::string>& words) {
    if (!words.empty()) {
        return GivenCommand(words, OwnAgent(), workdir);
    }
    StartCommand command = ServiceCommand(OwnAgent(), workdir);
    if (command.isAssumed) {
        Tell(
            "the service manager has no service for this working folder; as if it were started "
            "with the options of the shipped one");
    }
    std::filesystem::current_path("/");  // where a service is started
    return command;
}

void RunCheck(const std::string& workdir, bool isJson, const std::vector<std::string>& words) {
    const StartCommand command = CommandOf(workdir, words);
    UseRegistryFile(RegistryFile());
    Findings findings;
    CheckStart(ReadStart(command, findings), findings);
    if (isJson) {
        PrintForPrograms(command, findings);
    } else {
        PrintForPeople(findings);
    }
    FlushOutput();
    if (findings.Count(kError) != 0) {
        throw QuietFailure();
    }
}

int Run(const std::vector<std::string>& arguments) {
    constexpr std::size_t kFixed = 2;  // workdir, form
    try {
        if (arguments.size() < kFixed) {
            throw CommandError("this is a part of 'zelkctl check'", ExitCode::kUsage);
        }
        RunCheck(arguments[0], arguments[1] == "json",
                 {arguments.begin() + kFixed, arguments.end()});
        return static_cast<int>(ExitCode::kDone);
    } catch (const QuietFailure& failure) {
        return static_cast<int>(failure.Code());
    } catch (const CommandError& error) {
        Tell(error.what());
        return static_cast<int>(error.Code());
    } catch (const std::exception& error) {
        Tell(error.what());
        return static_cast<int>(ExitCode::kFailed);
    }
}

}  // namespace

int main(int argc, char** argv) {
    PinTextEncoding();
    const wxInitializer framework;
    wxLog::EnableLogging(false);  // what goes wrong is among the findings
    return Run({argv + 1, argv + argc});
}
