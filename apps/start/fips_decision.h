#pragma once

#include <wx/string.h>

#include <functional>
#include <optional>

// The setting that decides on FIPS: what the configuration says, or in the absence of that the
// system's policy in decimal, or nothing. The policy is asked only if it counts.
wxString FipsSetting(const wxString& configured,
                     const std::function<std::optional<long>()>& systemPolicy);

// FIPS is on for every setting but none and "0".
bool IsFipsOn(const wxString& setting);
