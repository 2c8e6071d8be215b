#pragma once

#include <string>

// How a file is called that does something with a package: "Remove-NAME-VERSION.zku". A '-' of the
// package's name becomes '_', so that the name is the type of such a package (GetPluginType).
std::string PackageFileName(const std::string& verb, std::string name, const std::string& version,
                            const std::string& extension);
