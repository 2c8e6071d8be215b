#pragma once

#include <string>

#include "apps/zelkctl/check/finding.h"
#include "apps/zelkctl/check/start.h"

// The subjects of `zelkctl check`, each of which adds what it finds. They read what the start would
// read, with the agent's own functions, and change nothing.

// The registry file, and the value of it that names the working folder.
void CheckRegistry(const Start& start, Findings& findings);

// The working folder itself.
void CheckWorkdir(const Start& start, Findings& findings);

// Both ini files. The store gets the configuration, which the subjects below go by.
void CheckIniFiles(const Start& start, Findings& findings);

// What OpenSSL is configured by.
void CheckCrypto(const Start& start, Findings& findings);

// The trusted certificates in a folder.
void CheckTrust(const std::string& folder, Findings& findings);

// The database of settings and events.
void CheckDatabase(const Start& start, Findings& findings);

// The packages that wait, if the start carries them out.
void CheckPackages(const Start& start, Findings& findings);

// The Lua archives and their modules, and the application's own module. Nothing of it runs.
void CheckApplication(const Start& start, Findings& findings);

// All of them, in the order of a start.
void CheckStart(const Start& start, Findings& findings);
