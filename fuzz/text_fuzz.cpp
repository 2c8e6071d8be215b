#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "zelka_core/text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

// Whatever the bytes are, the text made of them is kept by every further conversion.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const wxString text = ZelkaCore::FromUtf8({reinterpret_cast<const char*>(data), size});
    if (text.empty() != (size == 0) || ZelkaCore::FromUtf8(ZelkaCore::ToUtf8(text)) != text) {
        std::abort();
    }
    return 0;
}
