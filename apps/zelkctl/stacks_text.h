#pragma once

#include <string>

#include "zelka_core/varlink/json.h"

// Threads of a reply with their stacks, fit to be shown.
std::string StacksText(const ZelkaCore::Json& threads);

// Tells on standard error how many threads the reply had no room for, if there are any.
void TellLeftOut(const ZelkaCore::Json& reply);
