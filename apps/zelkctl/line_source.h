#pragma once

#include <string>

// Where the lines of a console come from.
class LineSource {
  public:
    enum class End { kLine, kCancelled, kOver };

    LineSource() = default;
    virtual ~LineSource() = default;
    LineSource(const LineSource&) = delete;
    LineSource& operator=(const LineSource&) = delete;

    // The next line, without its end.
    virtual End Read(const std::string& prompt, std::string& line) = 0;
};
