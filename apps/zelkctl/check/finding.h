#pragma once

#include <cstddef>
#include <string>
#include <vector>

// What a look at the files of a start has found, in the order of the start.

struct Finding {
    enum class Severity { kWarning, kError };  // an error is in the start's way, or not in force

    Severity severity = Severity::kError;
    std::string file;      // empty: it is in none
    std::size_t line = 0;  // from 1 on; 0: in none
    std::string text;      // not yet fit to be shown
};

class Findings {
  public:
    void Error(const std::string& file, const std::string& text) { Error(file, 0, text); }
    void Error(const std::string& file, std::size_t line, const std::string& text) {
        m_all.push_back({Finding::Severity::kError, file, line, text});
    }
    void Warning(const std::string& file, const std::string& text) { Warning(file, 0, text); }
    void Warning(const std::string& file, std::size_t line, const std::string& text) {
        m_all.push_back({Finding::Severity::kWarning, file, line, text});
    }

    // Adds those of a subject, file by file as they came, and in the order of the lines.
    void AddByLine(const Findings& others);

    [[nodiscard]] const std::vector<Finding>& All() const { return m_all; }
    [[nodiscard]] std::size_t Count(Finding::Severity severity) const;

  private:
    std::vector<Finding> m_all;
};
