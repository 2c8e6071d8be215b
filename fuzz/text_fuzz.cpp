#include "fuzz/fuzz_target.h"
#include "zelka_core/text.h"

// UTF-8 comes back as it went in. Any other bytes are one character each, which comes back as well.
void RunOnInput(std::string_view input) {
    const std::string bytes(input);
    const wxString text = ZelkaCore::FromUtf8(bytes);
    const std::string back = ZelkaCore::ToUtf8(text);
    Require(ZelkaCore::IsValidUtf8(bytes)
                ? back == bytes
                : text == wxString::From8BitData(bytes.data(), bytes.size()));
    Require(ZelkaCore::FromUtf8(back) == text);
}
