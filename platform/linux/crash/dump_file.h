#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/minidump_format.h"

namespace crash {

// A file written front to back beside its final name and moved there when it is complete, so that
// nobody ever sees half of one. The first failure sticks: what comes after it does nothing, and
// Publish() answers false. Runs in the signal handler; the path texts have to outlive the object.
class DumpFile {
  public:
    // `temporaryPath` lies in the same folder. What is there already is replaced.
    DumpFile(const char* path, const char* temporaryPath, const char* folder);
    ~DumpFile();  // removes what has not been published
    DumpFile(const DumpFile&) = delete;
    DumpFile& operator=(const DumpFile&) = delete;

    [[nodiscard]] bool Failed() const { return m_failed; }

    // Where the next byte goes.
    [[nodiscard]] std::uint64_t Offset() const { return m_offset; }

    // The same, for the format's 32-bit places; a failure if it is beyond them.
    minidump::Rva Here();

    minidump::Location Append(const void* data, std::size_t size);

    // Copies memory of this process. Pages that cannot be read become zeros.
    void AppendMemory(std::uint64_t address, std::uint64_t size);

    // Zeros, as a hole that takes no space.
    void AppendZeros(std::uint64_t size) { m_offset += size; }

    // Writes where zeros were appended.
    void WriteAt(std::uint64_t offset, const void* data, std::size_t size);

    // Makes the file durable and moves it to its final name.
    bool Publish();

  private:
    const char* m_path;
    const char* m_temporaryPath;
    const char* m_folder;
    int m_fd;
    std::uint64_t m_offset = 0;
    bool m_failed;
    bool m_published = false;
};

}  // namespace crash
