#include <lua.hpp>

#include "zelka_core/dom.h"

namespace ZelkaCore {

int CDom::RegisterLoader(lua_State*) {
    return 0;
}

}  // namespace ZelkaCore
