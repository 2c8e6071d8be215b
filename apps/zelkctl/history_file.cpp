#include "apps/zelkctl/history_file.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "platform/private_file.h"

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kKept = 1000;  // lines

fs::path PathInHome() {
    const auto folderOf = [](const char* variable) {
        const char* value = std::getenv(variable);
        return value != nullptr && *value == '/' ? fs::path(value) : fs::path();
    };
    if (const fs::path state = folderOf("XDG_STATE_HOME"); !state.empty()) {
        return state / "zelkctl/history";
    }
    const fs::path home = folderOf("HOME");
    return home.empty() ? home : home / ".local/state/zelkctl/history";
}

}  // namespace

HistoryFile::HistoryFile() : m_path(PathInHome().string()) {
    std::string failed;
    if (m_path.empty() || MakePrivateFolders(fs::path(m_path).parent_path().string(), failed)) {
        m_path.clear();
        return;
    }
    (void)MakePrivateFile(m_path);
    (void)CloseToOthers(m_path);
    std::ifstream file(m_path);
    for (std::string line; std::getline(file, line);) {
        m_lines.push_back(line);
    }
    if (m_lines.size() > kKept) {
        m_lines.erase(m_lines.begin(), m_lines.end() - kKept);
        Shorten();
    }
}

bool HistoryFile::Add(const std::string& line) {
    if (line == m_last) {
        return false;
    }
    m_last = line;
    if (!m_path.empty()) {
        std::ofstream(m_path, std::ios::app) << line + "\n" << std::flush;
    }
    return true;
}

void HistoryFile::Shorten() const {
    const std::string shortened = m_path + ".new";
    std::error_code ignored;
    fs::remove(shortened, ignored);
    if (MakePrivateFile(shortened)) {
        return;
    }
    std::ofstream file(shortened);
    for (const std::string& line : m_lines) {
        file << line << '\n';
    }
    file.close();
    if (file) {
        fs::rename(shortened, m_path, ignored);
    } else {
        fs::remove(shortened, ignored);
    }
}
