#pragma once

#include <string>
#include <string_view>
#include <vector>

// An entry of an archive that a test makes.
struct ZipBuilderEntry {
    std::string name;
    std::string content = {};
    unsigned mode = 0100644;  // Unix; what lies in the external attributes' high half
    bool encrypted = false;
    bool stored = false;  // deflated if not
};

// The bytes of a ZIP archive with the entries in this order.
std::string BuildZip(const std::vector<ZipBuilderEntry>& entries);

// `bytes` with each occurrence of `from` replaced by `to`, which is as long; throws if there is
// none.
std::string Patch(std::string bytes, std::string_view from, std::string_view to);
