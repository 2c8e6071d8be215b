#include "apps/zelkctl/archive_writer.h"

#include <filesystem>
#include <random>
#include <utility>

#include "apps/zelkctl/zelkctl.h"
#include "platform/private_file.h"

namespace fs = std::filesystem;

namespace {

[[noreturn]] void Fail(const std::string& path, const std::string& reason) {
    throw CommandError(path + ": the archive cannot be written: " + reason);
}

}  // namespace

// A file that is there already gives its mode to the one that the library writes in its place.
ArchiveWriter::Temporary::Temporary(const std::string& path)
    : m_path(path + "." + std::to_string(std::random_device()()) + ".part") {
    std::error_code ignored;
    if (fs::is_directory(path, ignored)) {
        Fail(path, "it is a folder");
    }
    if (const auto error = MakePrivateFile(m_path)) {
        Fail(path, error.message());
    }
}

ArchiveWriter::Temporary::~Temporary() {
    std::error_code ignored;
    fs::remove(m_path, ignored);
}

ArchiveWriter::ArchiveWriter(const std::string& path) : m_path(path), m_temporary(path) {
    int code = 0;
    m_archive.reset(zip_open(m_temporary.Path().c_str(), ZIP_TRUNCATE, &code));
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
    Add(name, zip_source_buffer(m_archive.get(), kept.data(), kept.size(), 0));
}

void ArchiveWriter::AddFile(const std::string& name, FileStream file) {
    zip_source_t* source = zip_source_filep(m_archive.get(), file.get(), 0, -1);
    if (source != nullptr) {
        (void)file.release();  // the source closes it
    }
    Add(name, source);
}

void ArchiveWriter::Add(const std::string& name, zip_source_t* source) {
    if (source == nullptr ||
        zip_file_add(m_archive.get(), name.c_str(), source, ZIP_FL_ENC_UTF_8) < 0) {
        zip_source_free(source);
        Fail(m_path, name + ": " + zip_strerror(m_archive.get()));
    }
}

void ArchiveWriter::Finish() {
    if (zip_close(m_archive.get()) != 0) {
        Fail(m_path, zip_strerror(m_archive.get()));
    }
    (void)m_archive.release();  // closed by that
    std::error_code error;
    fs::rename(m_temporary.Path(), m_path, error);
    if (error) {
        Fail(m_path, error.message());
    }
}
