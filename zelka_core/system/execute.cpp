#include <wx/log.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/program.h"
#include "zelka_core/system/processes.h"
#include "zelka_core/text.h"

namespace ZelkaCore {
namespace {

// Splits as Execute promises. Nothing if the last double quote is not closed.
std::optional<std::vector<std::string>> SplitArguments(const std::string& text) {
    std::vector<std::string> words;
    bool inWord = false;
    bool inQuotes = false;
    for (const char c : text) {
        if (!inQuotes && (c == ' ' || c == '\t')) {
            inWord = false;
            continue;
        }
        if (!inWord) {
            words.emplace_back();
            inWord = true;
        }
        if (c == '"') {
            inQuotes = !inQuotes;
        } else {
            words.back() += c;
        }
    }
    if (inQuotes) {
        return std::nullopt;
    }
    return words;
}

bool Refuse(const std::string& program, const std::string& reason) {
    wxLogWarning("%s could not be run: %s", FromUtf8(program), FromUtf8(reason));
    return false;
}

// A warning names the program and the output if something was dropped.
wxString TextOf(ProgramOutput output, const std::string& program, const char* name) {
    if (output.dropped != 0) {
        const std::size_t whole = WholeCharacters(output.content).size();
        output.dropped += output.content.size() - whole;
        output.content.resize(whole);
        wxLogWarning("%s: %zu bytes of its %s were dropped", FromUtf8(program), output.dropped,
                     wxString::FromAscii(name));
    }
    return FromUtf8(output.content);
}

}  // namespace

bool Execute(const wxString& program, const wxString& arguments, wxString& output,
             unsigned long& exitCode, wxString& errors) {
    const std::string path = ToUtf8(program);
    const std::string line = ToUtf8(arguments);
    if ((path + line).find('\0') != std::string::npos) {
        return Refuse(path, "a null character in the path or the arguments");
    }
    auto words = SplitArguments(line);
    if (!words) {
        return Refuse(path, "a double quote is not closed in the arguments: " + line);
    }
    ProgramResult result;
    if (const auto error = RunProgram(path, std::move(*words), result)) {
        return Refuse(path, error.message());
    }
    exitCode = result.exitCode;
    output = TextOf(std::move(result.output), path, "standard output");
    errors = TextOf(std::move(result.errors), path, "standard error");
    return true;
}

}  // namespace ZelkaCore
