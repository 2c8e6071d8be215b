#pragma once

#include <nlohmann/json.hpp>

namespace ZelkaCore {

// A JSON value whose members keep their order.
using Json = nlohmann::ordered_json;

}  // namespace ZelkaCore
