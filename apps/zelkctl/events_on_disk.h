#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "zelka_core/varlink/json.h"

// The events behind `after`, or the last ones, out of the database of an agent that does not run;
// as the agent would answer. A CommandError if there is none, or none that can be read.
ZelkaCore::Json EventsOnDisk(const std::string& workdir, const std::optional<std::int64_t>& after);
