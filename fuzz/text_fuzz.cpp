#include "fuzz/fuzz_target.h"
#include "zelka_core/log/log_text.h"
#include "zelka_core/text.h"

namespace {

// What a record in the log may hold: nothing that a terminal obeys.
bool IsHarmless(wxUint32 c) {
    return c == '\t' || c == '\n' ||
           (c >= 0x20 && (c < 0x7f || c >= 0xa0) && (c < 0x2028 || c > 0x202e) &&
            (c < 0x2066 || c > 0x2069));
}

}  // namespace

// UTF-8 comes back as it went in. Any other bytes are one character each, which comes back as well.
// Neither acts on a terminal once it is a record in the log.
void RunOnInput(std::string_view input) {
    const std::string bytes(input);
    const wxString text = ZelkaCore::FromUtf8(bytes);
    const std::string back = ZelkaCore::ToUtf8(text);
    Require(ZelkaCore::IsValidUtf8(bytes)
                ? back == bytes
                : text == wxString::From8BitData(bytes.data(), bytes.size()));
    Require(ZelkaCore::FromUtf8(back) == text);
    const std::string record = ZelkaCore::LogText(back);
    Require(ZelkaCore::IsValidUtf8(record));
    for (const wxUniChar c : ZelkaCore::FromUtf8(record)) {
        Require(IsHarmless(c.GetValue()));
    }
    Require(ZelkaCore::LogText(bytes).size() >= bytes.size());
}
