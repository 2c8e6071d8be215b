#include "platform/linux/crash/dump_file.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <limits>

#include "platform/linux/crash/signal_safe_calls.h"

namespace crash {
namespace {

constexpr std::uint64_t kPage = 4096;
constexpr std::uint64_t kMostAtOnce = std::uint64_t{1} << 30U;  // write(2) takes 2 GiB at most

std::uint64_t AddressOf(const void* data) {
    return std::bit_cast<std::uint64_t>(data);
}

}  // namespace

DumpFile::DumpFile(const char* path, const char* temporaryPath, const char* folder)
    : m_path(path), m_temporaryPath(temporaryPath), m_folder(folder) {
    Unlink(temporaryPath);
    m_fd = Open(temporaryPath, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
    m_failed = m_fd < 0;
}

DumpFile::~DumpFile() {
    if (m_fd >= 0) {
        Close(m_fd);
        if (!m_published) {
            Unlink(m_temporaryPath);
        }
    }
}

minidump::Rva DumpFile::Here() {
    m_failed = m_failed || m_offset > std::numeric_limits<minidump::Rva>::max();
    return static_cast<minidump::Rva>(m_offset);
}

minidump::Location DumpFile::Append(const void* data, std::size_t size) {
    const minidump::Location location{.dataSize = static_cast<std::uint32_t>(size), .rva = Here()};
    WriteAt(m_offset, data, size);
    m_offset += size;
    return location;
}

void DumpFile::AppendMemory(std::uint64_t address, std::uint64_t size) {
    while (size != 0 && !m_failed) {
        const long written = crash::WriteAt(m_fd, address, std::min(size, kMostAtOnce), m_offset);
        auto done = static_cast<std::uint64_t>(written);
        if (written < 0 && errno == EFAULT) {
            done = std::min(size, kPage - address % kPage);
        } else if (written <= 0) {
            m_failed = true;
            return;
        }
        address += done;
        size -= done;
        m_offset += done;
    }
}

void DumpFile::WriteAt(std::uint64_t offset, const void* data, std::size_t size) {
    std::uint64_t address = AddressOf(data);
    while (size != 0 && !m_failed) {
        const long written = crash::WriteAt(m_fd, address, size, offset);
        if (written <= 0) {
            m_failed = true;
            return;
        }
        const auto done = static_cast<std::size_t>(written);
        address += done;
        offset += done;
        size -= done;
    }
}

bool DumpFile::Publish() {
    // The file may end in a hole.
    m_failed = m_failed || syscall(SYS_ftruncate, m_fd, m_offset) != 0 ||
               syscall(SYS_fsync, m_fd) != 0 ||
               syscall(SYS_renameat, AT_FDCWD, m_temporaryPath, AT_FDCWD, m_path) != 0;
    if (m_failed) {
        return false;
    }
    m_published = true;
    const int folder = Open(m_folder, O_RDONLY | O_DIRECTORY);
    if (folder >= 0) {
        (void)syscall(SYS_fsync, folder);
        Close(folder);
    }
    return true;
}

}  // namespace crash
