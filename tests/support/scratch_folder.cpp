#include "tests/support/scratch_folder.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <system_error>

ScratchFolder::ScratchFolder() {
    std::string name = (fs::temp_directory_path() / "zelk-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), name);
    }
    m_path = name;
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    (void)fs::remove_all(m_path, ignored);
}

fs::path ScratchFolder::Write(const std::string& name, const std::string& content) const {
    fs::path path = m_path / name;
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << content;
    return path;
}

std::string ReadFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}
