#include <algorithm>
#include <cstdio>
#include <string>

#include "fuzz/fuzz_target.h"
#include "platform/file.h"
#include "zelka_core/archive/zip_central_directory.h"

// What is accepted lies within the input, with each name in it; what is not has a reason.
void RunOnInput(std::string_view input) {
    std::string bytes(input);
    const FileStream file(fmemopen(bytes.data(), bytes.size(), "rb"));
    if (!file) {
        return;  // an empty stream is not to be had everywhere
    }
    ZelkaCore::ZipDirectory directory;
    std::string fault;
    if (!ZelkaCore::ReadCentralDirectory(file.get(), directory, fault)) {
        Require(!fault.empty() && directory.names.empty());
        return;
    }
    Require(directory.begin <= input.size() && directory.size <= input.size() - directory.begin);
    const std::string_view archive = input.substr(directory.begin, directory.size);
    Require(std::all_of(directory.names.begin(), directory.names.end(), [&](const auto& name) {
        return archive.find(name) != std::string_view::npos;
    }));
}
