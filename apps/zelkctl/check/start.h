#pragma once

#include <memory>

#include "apps/start/brand.h"
#include "apps/start/workdir.h"
#include "apps/zelkctl/check/finding.h"
#include "apps/zelkctl/check/start_command.h"
#include "zelka_core/store/dom.h"

// A start as far as its options settle it, in the variables of a store and beside them.
struct Start {
    std::unique_ptr<ZelkaCore::CDom> dom;
    Identity identity;
    Workdir workdir;
    wxString zipPath;
    wxString extDir;
    bool installsPackages = false;
};

// Understands the command, and adds what is wrong with it; UseRegistryFile comes before. Throws a
// CommandError if its options make no sense.
Start ReadStart(const StartCommand& command, Findings& findings);
