#include "apps/zelkctl/stacks_text.h"

#include "apps/zelkctl/output.h"
#include "apps/zelkctl/reply.h"

namespace {

using ZelkaCore::Json;

// The lines of the text, each behind a margin.
std::string Indented(const std::string& text) {
    constexpr const char* kMargin = "    ";
    std::string lines = kMargin;
    for (const char character : text) {
        lines += character;
        if (character == '\n') {
            lines += kMargin;
        }
    }
    return lines + "\n";
}

std::string HeadOf(const Json& thread) {
    std::string head = Toned(MemberText(thread, "name"), Tone::kHeading);
    head += MemberFlag(thread, "is_task") ? " (task): " : " (thread): ";
    head += MemberText(thread, "state");
    if (!RawMember(thread, "waits_for").empty()) {
        head += ", waits for " + MemberText(thread, "waits_for");
    }
    if (MemberNumber(thread, "since_ms")) {
        head += ", for " + MemberDuration(thread, "since_ms");
    }
    return head + ", at " + MemberText(thread, "place") + "\n";
}

}  // namespace

std::string StacksText(const Json& threads) {
    std::string text;
    for (const Json& thread : threads) {
        text += HeadOf(thread);
        for (const char* part : {"traceback", "locals"}) {
            std::string lines = ShownLines(RawMember(thread, part));
            while (lines.ends_with('\n')) {
                lines.pop_back();
            }
            if (!lines.empty()) {
                text += Indented(lines);
            }
        }
    }
    return text;
}

void TellLeftOut(const Json& reply) {
    if (MemberNumber(reply, "left_out").value_or(0) > 0) {
        Tell("the agent leaves out " + MemberText(reply, "left_out") + " more");
    }
}
