#pragma once

#include "apps/zelkctl/table.h"
#include "zelka_core/varlink/json.h"

// A table of agent events, as the agent tells them.
Table EventsTable();
void AddEvents(const ZelkaCore::Json& events, Table& table);
