#include "apps/start/fips_decision.h"

wxString FipsSetting(const wxString& configured,
                     const std::function<std::optional<long>()>& systemPolicy) {
    if (!configured.empty()) {
        return configured;
    }
    const std::optional<long> policy = systemPolicy();
    return policy ? wxString::Format("%ld", *policy) : wxString();
}

bool IsFipsOn(const wxString& setting) {
    return !setting.empty() && setting.CmpNoCase("0") != 0;
}
