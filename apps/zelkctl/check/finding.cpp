#include "apps/zelkctl/check/finding.h"

#include <algorithm>

std::size_t Findings::Count(Finding::Severity severity) const {
    return static_cast<std::size_t>(
        std::count_if(m_all.begin(), m_all.end(),
                      [severity](const Finding& finding) { return finding.severity == severity; }));
}

void Findings::AddByLine(const Findings& others) {
    std::vector<Finding> left = others.m_all;
    while (!left.empty()) {
        const std::string file = left.front().file;
        const auto isOfFile = [&](const Finding& finding) { return finding.file == file; };
        const auto end = std::stable_partition(left.begin(), left.end(), isOfFile);
        std::stable_sort(left.begin(), end, [](const Finding& one, const Finding& other) {
            return one.line < other.line;
        });
        m_all.insert(m_all.end(), left.begin(), end);
        left.erase(left.begin(), end);
    }
}
