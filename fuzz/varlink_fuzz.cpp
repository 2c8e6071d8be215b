#include <string>

#include "fuzz/fuzz_target.h"
#include "zelka_core/varlink/varlink_message.h"

using ZelkaCore::VarlinkCall;
using ZelkaCore::VarlinkReader;
using ZelkaCore::VarlinkReply;

namespace {

// What is read is written as something that reads as the same.
void RequireRoundTrip(const std::string& message) {
    std::string fault;
    VarlinkCall call;
    if (ReadVarlinkCall(message, call, fault)) {
        const std::string written = WriteVarlink(call);
        VarlinkCall again;
        Require(ReadVarlinkCall({written.data(), written.size() - 1}, again, fault));
        Require(WriteVarlink(again) == written);
    } else {
        Require(!fault.empty() && call.method.empty());
    }
    VarlinkReply reply;
    if (ReadVarlinkReply(message, reply, fault)) {
        const std::string written = WriteVarlink(reply);
        Require(written.find('\0') == written.size() - 1);
    }
}

}  // namespace

// However the bytes are cut on their way, the same messages come out.
void RunOnInput(std::string_view input) {
    VarlinkReader whole;
    whole.Add(input);
    VarlinkReader byByte;
    std::string_view rest = input;
    while (const auto message = whole.Next()) {
        std::optional<std::string> same;
        while (!same && !rest.empty()) {
            byByte.Add(rest.substr(0, 1));
            rest.remove_prefix(1);
            same = byByte.Next();
        }
        Require(same == message);
        RequireRoundTrip(*message);
    }
    byByte.Add(rest);
    Require(!byByte.Next() && whole.IsTooLong() == byByte.IsTooLong());
}
