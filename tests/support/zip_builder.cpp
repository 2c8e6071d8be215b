#include "tests/support/zip_builder.h"

#include <zip.h>

#include <stdexcept>

#include "tests/support/scratch_folder.h"

namespace {

void Require(bool done, const char* what) {
    if (!done) {
        throw std::runtime_error(what);
    }
}

void Add(zip_t* archive, const ZipBuilderEntry& entry) {
    const char* const name = entry.name.c_str();
    const bool isFolder = entry.name.ends_with('/');
    const zip_int64_t added =
        isFolder ? zip_dir_add(archive, name, ZIP_FL_ENC_UTF_8)
                 : zip_file_add(
                       archive, name,
                       zip_source_buffer(archive, entry.content.data(), entry.content.size(), 0),
                       ZIP_FL_ENC_UTF_8);
    Require(added >= 0, name);
    const auto index = static_cast<zip_uint64_t>(added);
    (void)zip_file_set_external_attributes(archive, index, 0, ZIP_OPSYS_UNIX, entry.mode << 16U);
    if (!isFolder) {
        (void)zip_set_file_compression(archive, index, entry.stored ? ZIP_CM_STORE : ZIP_CM_DEFLATE,
                                       0);
    }
    if (entry.encrypted) {
        (void)zip_file_set_encryption(archive, index, ZIP_EM_AES_256, "secret");
    }
}

}  // namespace

std::string BuildZip(const std::vector<ZipBuilderEntry>& entries) {
    if (entries.empty()) {
        return std::string("PK\5\6", 4) + std::string(18, '\0');  // libzip writes no empty archive
    }
    const ScratchFolder scratch;
    const std::string path = scratch.Path() / "built.zip";
    zip_t* archive = zip_open(path.c_str(), ZIP_CREATE, nullptr);
    Require(archive != nullptr, "zip_open");
    for (const ZipBuilderEntry& entry : entries) {
        Add(archive, entry);
    }
    Require(zip_close(archive) == 0, "zip_close");
    return ReadFile(path);
}

std::string Patch(std::string bytes, std::string_view from, std::string_view to) {
    Require(from.size() == to.size(), "a patch keeps the size");
    std::size_t at = bytes.find(from);
    Require(at != std::string::npos, "nothing to patch");
    for (; at != std::string::npos; at = bytes.find(from, at + from.size())) {
        bytes.replace(at, to.size(), to);
    }
    return bytes;
}
