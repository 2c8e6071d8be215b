#pragma once

#include <filesystem>
#include <string>

namespace fs = std::filesystem;

// A new empty folder that goes with everything in it when the object goes.
class ScratchFolder {
  public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    [[nodiscard]] const fs::path& Path() const { return m_path; }

    // Writes `content` to a file below the folder, whose parent folders are made; returns its path.
    fs::path Write(const std::string& name, const std::string& content) const;

  private:
    fs::path m_path;
};

// The bytes of a file; empty if it cannot be read.
std::string ReadFile(const fs::path& path);
