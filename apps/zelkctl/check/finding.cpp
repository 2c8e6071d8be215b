#include "apps/zelkctl/check/finding.h"

#include <algorithm>

std::size_t Findings::Count(Finding::Severity severity) const {
    return static_cast<std::size_t>(
        std::count_if(m_all.begin(), m_all.end(),
                      [severity](const Finding& finding) { return finding.severity == severity; }));
}
