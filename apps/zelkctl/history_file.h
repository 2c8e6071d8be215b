#pragma once

#include <string>
#include <vector>

// The lines that were typed at the console, in a file of the user's home that nobody else can read.
// What fails leaves the history out, without a word.
class HistoryFile {
  public:
    // Finds and reads it.
    HistoryFile();

    // Those of earlier consoles, the newest last.
    [[nodiscard]] const std::vector<std::string>& Lines() const { return m_lines; }

    // Adds one, beside those of other consoles that run. False if it is the same as the one before.
    bool Add(const std::string& line);

  private:
    void Shorten() const;

    std::string m_path;  // empty: there is no home
    std::vector<std::string> m_lines;
    std::string m_last;
};
