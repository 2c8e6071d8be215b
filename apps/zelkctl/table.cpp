#include "apps/zelkctl/table.h"

#include <algorithm>
#include <cwchar>
#include <utility>

std::size_t DisplayWidth(std::string_view text) {
    std::size_t width = 0;
    std::mbstate_t state = {};
    while (!text.empty()) {
        wchar_t character = 0;
        const std::size_t size = std::mbrtowc(&character, text.data(), text.size(), &state);
        if (size == 0 || size > text.size()) {
            state = {};
            ++width;
            text.remove_prefix(1);
            continue;
        }
        const int columns = wcwidth(character);
        width += columns < 0 ? 1 : static_cast<std::size_t>(columns);
        text.remove_prefix(size);
    }
    return width;
}

Table::Table(std::vector<std::string> titles) {
    std::vector<Cell> row;
    row.reserve(titles.size());
    for (std::string& title : titles) {
        row.emplace_back(std::move(title), Tone::kHeading);
    }
    if (!row.empty()) {
        Add(std::move(row));
    }
}

std::string Table::Take() {
    for (const auto& row : m_rows) {
        m_widths.resize(std::max(m_widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i) {
            m_widths[i] = std::max(m_widths[i], DisplayWidth(row[i].text));
        }
    }
    std::string lines;
    for (const auto& row : std::exchange(m_rows, {})) {
        std::size_t gap = 0;  // blanks that are due before the next text
        for (std::size_t i = 0; i < row.size(); ++i) {
            constexpr std::size_t kBetween = 2;
            if (!row[i].text.empty()) {
                lines.append(gap, ' ').append(Toned(row[i].text, row[i].tone));
                gap = 0;
            }
            gap += m_widths[i] - DisplayWidth(row[i].text) + kBetween;
        }
        lines += '\n';
    }
    return lines;
}
