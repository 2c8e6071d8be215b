#include "apps/zelkctl/package_file_name.h"

#include <algorithm>

std::string PackageFileName(const std::string& verb, std::string name, const std::string& version,
                            const std::string& extension) {
    std::replace(name.begin(), name.end(), '-', '_');
    return verb + "-" + name + "-" + version + extension;
}
