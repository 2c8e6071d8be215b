#pragma once

#include <string>

#include "zelka_core/package/package_judgement.h"

// Whether a setting is stored in the database. False also if that cannot be read, or is not there.
bool HasSetting(const std::string& database, const std::string& name);

// The packages that the database has on record. None also if that cannot be read, or is not there.
ZelkaCore::InstalledPackages LookAtPackages(const std::string& database);
