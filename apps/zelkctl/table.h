#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "apps/zelkctl/output.h"

// How many columns of a terminal the text takes. A byte that is no UTF-8 is one, and a character
// that nothing is known of.
std::size_t DisplayWidth(std::string_view text);

struct Cell {
    Cell(std::string shown, Tone how = Tone::kPlain)  // NOLINT(google-explicit-constructor)
        : text(std::move(shown)), tone(how) {}

    std::string text;
    Tone tone;
};

// Rows of cells in aligned columns.
class Table {
  public:
    // The titles are its first row; a table may do without.
    explicit Table(std::vector<std::string> titles = {});

    // A row has as many cells as all others.
    void Add(std::vector<Cell> row) { m_rows.push_back(std::move(row)); }

    // The lines of the rows that were added since the last call. No column gets narrower by that.
    std::string Take();

  private:
    std::vector<std::vector<Cell>> m_rows;
    std::vector<std::size_t> m_widths;
};
