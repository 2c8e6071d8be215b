#pragma once

#include <string>

// The path of the registry file of this process: what the environment says, or the machine's.
std::string RegistryFile();
