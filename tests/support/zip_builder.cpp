#include "tests/support/zip_builder.h"

#include <zip.h>

#include <stdexcept>

namespace {

void Require(bool done, const char* what) {
    if (!done) {
        throw std::runtime_error(what);
    }
}

void Add(zip_t* archive, const ZipBuilderEntry& entry) {
    if (entry.name.ends_with('/')) {
        const zip_int64_t folder = zip_dir_add(archive, entry.name.c_str(), ZIP_FL_ENC_UTF_8);
        Require(folder >= 0, "zip_dir_add");
        const auto index = static_cast<zip_uint64_t>(folder);
        (void)zip_file_set_external_attributes(archive, index, 0, ZIP_OPSYS_UNIX,
                                               entry.mode << 16U);
        return;
    }
    zip_source_t* source =
        zip_source_buffer(archive, entry.content.data(), entry.content.size(), 0);
    const zip_int64_t added = zip_file_add(archive, entry.name.c_str(), source, ZIP_FL_ENC_UTF_8);
    Require(added >= 0, "zip_file_add");
    const auto index = static_cast<zip_uint64_t>(added);
    (void)zip_file_set_external_attributes(archive, index, 0, ZIP_OPSYS_UNIX, entry.mode << 16U);
    Require(zip_set_file_compression(archive, index, entry.stored ? ZIP_CM_STORE : ZIP_CM_DEFLATE,
                                     0) == 0,
            "zip_set_file_compression");
    if (entry.encrypted) {
        Require(zip_file_set_encryption(archive, index, ZIP_EM_AES_256, "secret") == 0,
                "zip_file_set_encryption");
    }
}

}  // namespace

std::string BuildZip(const std::vector<ZipBuilderEntry>& entries) {
    if (entries.empty()) {
        return std::string("PK\5\6", 4) + std::string(18, '\0');  // libzip writes no empty archive
    }
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* source = zip_source_buffer_create(nullptr, 0, 0, &error);
    zip_t* archive = zip_open_from_source(source, ZIP_TRUNCATE, &error);
    Require(archive != nullptr, "zip_open_from_source");
    zip_source_keep(source);
    for (const ZipBuilderEntry& entry : entries) {
        Add(archive, entry);
    }
    Require(zip_close(archive) == 0, "zip_close");
    zip_stat_t status;
    Require(zip_source_stat(source, &status) == 0 && zip_source_open(source) == 0, "open");
    std::string bytes(status.size, '\0');
    Require(
        zip_source_read(source, bytes.data(), status.size) == static_cast<zip_int64_t>(status.size),
        "zip_source_read");
    (void)zip_source_close(source);
    zip_source_free(source);
    return bytes;
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
