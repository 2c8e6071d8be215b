#include "apps/start/brand.h"

namespace {

constexpr const char* kPrefix = "zelk";
constexpr const char* kOtherPrefix = "morv";

}  // namespace

Identity ApplyBrandRule(const wxString& name, const wxString& executableStem) {
    if (!executableStem.StartsWith(kOtherPrefix)) {
        return {name, name, "zelk_agent", "zelka"};
    }
    Identity identity{name, name, "morv_agent", "morva"};
    wxString rest;
    if (name.StartsWith(kOtherPrefix, &rest)) {
        identity.name = kPrefix + rest;
    }
    if (name.StartsWith(kPrefix, &rest)) {
        identity.displayName = kOtherPrefix + rest;
    }
    return identity;
}
