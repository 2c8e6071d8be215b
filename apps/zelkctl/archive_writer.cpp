#include "apps/zelkctl/archive_writer.h"

#include <filesystem>
#include <random>
#include <utility>

#include "apps/zelkctl/zelkctl.h"
#include "platform/folder_tree.h"
#include "platform/private_file.h"

namespace fs = std::filesystem;

namespace {

constexpr std::uint32_t kHardest = 9;  // of the ways to compress

[[noreturn]] void Fail(const std::string& path, const std::string& reason) {
    throw CommandError(path + ": the archive cannot be written: " + reason);
}

}  // namespace

// A file that is there already gives its mode to the one that the library writes in its place.
ArchiveWriter::Temporary::Temporary(const std::string& path, Kind kind)
    : m_path(path + "." + std::to_string(std::random_device()()) + ".part") {
    std::error_code ignored;
    const fs::file_type type = fs::status(path, ignored).type();
    if (type != fs::file_type::not_found && type != fs::file_type::regular) {
        Fail(path, type == fs::file_type::directory ? "it is a folder" : "it is no regular file");
    }
    if (kind == Kind::kPackage) {
        return;
    }
    if (const auto error = MakePrivateFile(m_path)) {
        Fail(path, error.message());
    }
}

ArchiveWriter::Temporary::~Temporary() {
    std::error_code ignored;
    fs::remove(m_path, ignored);
}

ArchiveWriter::ArchiveWriter(const std::string& path, Kind kind)
    : m_path(path), m_kind(kind), m_temporary(path, kind) {
    int code = 0;
    m_archive.reset(zip_open(m_temporary.Path().c_str(), ZIP_CREATE | ZIP_TRUNCATE, &code));
    if (!m_archive) {
        zip_error_t error;
        zip_error_init_with_code(&error, code);
        const std::string reason = zip_error_strerror(&error);
        zip_error_fini(&error);
        Fail(m_path, reason);
    }
}

void ArchiveWriter::AddText(const std::string& name, std::string content) {
    const std::string& kept = m_texts.emplace_back(std::move(content));
    (void)Add(name, zip_source_buffer(m_archive.get(), kept.data(), kept.size(), 0));
}

void ArchiveWriter::AddFile(const std::string& name, FileStream file) {
    zip_source_t* source = zip_source_filep(m_archive.get(), file.get(), 0, -1);
    if (source != nullptr) {
        (void)file.release();  // the source closes it
    }
    (void)Add(name, source);
}

void ArchiveWriter::AddMarked(const std::string& name, const std::string& path,
                              const Marks& marks) {
    zip_t* const archive = m_archive.get();
    const bool isFolder = path.empty();
    const std::uint64_t index = Add(name, isFolder ? zip_source_buffer(archive, nullptr, 0, 0)
                                                   : zip_source_file(archive, path.c_str(), 0, -1));
    if (zip_set_file_compression(archive, index, isFolder ? ZIP_CM_STORE : ZIP_CM_DEFLATE,
                                 kHardest) != 0 ||
        zip_file_set_mtime(archive, index, marks.modified, 0) != 0 ||
        zip_file_set_external_attributes(archive, index, 0, ZIP_OPSYS_UNIX, marks.mode << 16U) !=
            0) {
        Fail(m_path, name + ": " + zip_strerror(archive));
    }
}

std::uint64_t ArchiveWriter::Add(const std::string& name, zip_source_t* source) {
    const zip_int64_t index =
        source == nullptr ? -1
                          : zip_file_add(m_archive.get(), name.c_str(), source, ZIP_FL_ENC_UTF_8);
    if (index < 0) {
        zip_source_free(source);
        Fail(m_path, name + ": " + zip_strerror(m_archive.get()));
    }
    return static_cast<std::uint64_t>(index);
}

void ArchiveWriter::Finish() {
    if (zip_close(m_archive.get()) != 0) {
        Fail(m_path, zip_strerror(m_archive.get()));
    }
    (void)m_archive.release();  // closed by that
    SyncFolder();
    std::error_code error;
    fs::rename(m_temporary.Path(), m_path, error);
    if (error) {
        Fail(m_path, error.message());
    }
    SyncFolder();
}

void ArchiveWriter::SyncFolder() const {
    if (m_kind == Kind::kPrivate) {
        return;
    }
    FolderTree folder;
    const std::string path = fs::path(m_path).parent_path().string();
    std::error_code error = folder.Open(path.empty() ? "." : path);
    if (!error) {
        error = folder.SyncFileSystems();
    }
    if (error) {
        Fail(m_path, error.message());
    }
}
