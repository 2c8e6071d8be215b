#pragma once

#include <optional>

// Whether the system as a whole was started in FIPS mode: the number that says so (0: no). Nothing
// if the system does not tell.
std::optional<long> SystemFipsFlag();
