#include "apps/zelkctl/output.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include "apps/zelkctl/reply.h"
#include "apps/zelkctl/zelkctl.h"
#include "platform/terminal.h"

namespace {

bool HasColours() {
    const auto valueOf = [](const char* variable) {
        const char* value = std::getenv(variable);
        return std::string_view(value != nullptr ? value : "");
    };
    static const bool hasColours = IsTerminal(stdout) && valueOf("NO_COLOR").empty() &&
                                   !valueOf("TERM").empty() && valueOf("TERM") != "dumb";
    return hasColours;
}

const char* CodeOf(Tone tone) {
    switch (tone) {
        case Tone::kHeading:
            return "\x1b[1m";
        case Tone::kGood:
            return "\x1b[32m";
        case Tone::kWarning:
            return "\x1b[33m";
        case Tone::kBad:
            return "\x1b[31m";
        case Tone::kPlain:
            break;
    }
    return nullptr;
}

void CheckOutput(bool isWritten) {
    if (!isWritten) {
        throw CommandError("standard output: " +
                           std::error_code(errno, std::generic_category()).message());
    }
}

}  // namespace

void Print(std::string_view text) {
    CheckOutput(std::fwrite(text.data(), 1, text.size(), stdout) == text.size());
}

void PrintLine(std::string_view text) {
    Print(text);
    Print("\n");
}

void PrintJson(const ZelkaCore::Json& value) {
    PrintLine(ToText(value));
}

void FlushOutput() {
    CheckOutput(std::fflush(stdout) == 0);
}

std::string Toned(const std::string& text, Tone tone) {
    const char* code = HasColours() ? CodeOf(tone) : nullptr;
    return code == nullptr ? text : code + text + "\x1b[0m";
}

void Tell(const std::string& text) {
    (void)std::fflush(stdout);  // what came before stands before it; a failure shows later
    (void)std::fprintf(stderr, "zelkctl: %s\n", text.c_str());
}
