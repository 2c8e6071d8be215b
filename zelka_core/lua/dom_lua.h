#pragma once

#include <string>

#include "slb3/slb3.h"
#include "zelka_core/lua/lua_arguments.h"
#include "zelka_core/store/dom.h"

// The Lua class of the domain store. Scripts see it as `dom`.

namespace ZelkaCore {

inline constexpr const char* kDomClass = "SLB.Dom";

// A call of a member of `dom`, whose argument 1 is the store.
class DomCall : public LuaCall {
  public:
    // Raises a Lua error if that is anything else.
    DomCall(lua_State* state, const char* member);

    CDom& dom;
};

// A member: takes its arguments from index 2 on, and returns the number of its results on the
// stack. A C++ exception that leaves it becomes a Lua error.
using DomMember = int (*)(const DomCall& call);

}  // namespace ZelkaCore

template <>
struct SLB3::Wrapper<ZelkaCore::CDom> {
    // Adds the members that scripts call.
    static void Register(internal::Class<ZelkaCore::CDom>& definition);
};
