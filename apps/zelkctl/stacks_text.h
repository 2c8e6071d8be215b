#pragma once

#include <string>

#include "zelka_core/varlink/json.h"

// The threads of a reply with their stacks, fit to be shown.
std::string StacksText(const ZelkaCore::Json& reply);
