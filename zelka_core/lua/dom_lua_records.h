#pragma once

#include "zelka_core/lua/dom_lua.h"

// The members of `dom` for what outlives the process: settings and agent events. The Lua state is
// given back while the database works.

namespace ZelkaCore {

int SettingStore(const DomCall& call);
int SettingRetrieve(const DomCall& call);
int SettingRemove(const DomCall& call);
int AgentEventWrite(const DomCall& call);
int AgentEvents(const DomCall& call);

}  // namespace ZelkaCore
