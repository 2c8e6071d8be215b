#pragma once

#include <filesystem>
#include <string>

// A new empty folder that goes with everything in it when the object goes.
class ScratchFolder {
  public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    [[nodiscard]] const std::filesystem::path& Path() const { return m_path; }

    // Writes `content` to a file below the folder, whose parent folders are made; returns its path.
    std::filesystem::path Write(const std::string& name, const std::string& content) const;

  private:
    std::filesystem::path m_path;
};

// The bytes of a file; empty if it cannot be read.
std::string ReadFile(const std::filesystem::path& path);
