#pragma once

#include <string>

// Whether a setting is stored in the database. False also if that cannot be read, or is not there.
bool HasSetting(const std::string& database, const std::string& name);
