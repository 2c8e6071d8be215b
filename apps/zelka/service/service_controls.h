#pragma once

#include "apps/zelka/zelka.h"
#include "platform/service.h"

// Which controls the service takes.

inline constexpr DWORD SERVICE_CONTROL_DUMP_BRIEF = 128;
inline constexpr DWORD SERVICE_CONTROL_DUMP_STACK = 129;
inline constexpr DWORD SERVICE_CONTROL_DUMP_FULL = 130;

// How much a dump of the Lua application shows.
enum class DumpDepth { kBrief, kStack, kFull };

struct CAgentApp::Control {
    ServiceControl rule;
    void (CAgentApp::*take)(const Control& control);  // null: taken without effect
    DumpDepth depth = DumpDepth::kBrief;              // of a dump
    const char* text = nullptr;                       // of a dump, for the log
};
