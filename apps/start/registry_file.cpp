#include "apps/start/registry_file.h"

#include <cstdlib>

namespace {

constexpr const char* kRegistryFile = "/etc/zelka/registry.ini";

}  // namespace

std::string RegistryFile() {
    const char* chosen = std::getenv("ZELKA_REGISTRY");
    return chosen != nullptr && *chosen != '\0' ? chosen : kRegistryFile;
}
