#pragma once

#include <string>

#include "zelka_core/varlink/json.h"

// The threads of a reply with their stacks, fit to be shown.
std::string StacksText(const ZelkaCore::Json& reply);

// Tells on standard error how many threads the reply had no room for, if there are any.
void TellLeftOut(const ZelkaCore::Json& reply);
