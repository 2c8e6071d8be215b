#pragma once

#include <string>

#include "slb3/slb3.h"
#include "zelka_core/store/dom.h"

// The Lua class of the domain store. Scripts see it as `dom`.

namespace ZelkaCore {

inline constexpr const char* kDomClass = "SLB.Dom";

// Whether the value of that name must not be shown: the name holds "password", "secret" or "token",
// in any case.
bool IsSecretName(const std::string& name);

}  // namespace ZelkaCore

template <>
struct SLB3::Wrapper<ZelkaCore::CDom> {
    // Adds the members that scripts call.
    static void Register(internal::Class<ZelkaCore::CDom>& definition);
};
