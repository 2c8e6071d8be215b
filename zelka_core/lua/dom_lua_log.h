#pragma once

#include "zelka_core/lua/dom_lua.h"

// The members of `dom` for log and trace.

namespace ZelkaCore {

int Log(const DomCall& call);
int WriteTrace(const DomCall& call);
int IsTraceEnabled(const DomCall& call);

}  // namespace ZelkaCore
