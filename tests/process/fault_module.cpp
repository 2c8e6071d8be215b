// The Lua module `fault`, with which the cases make the agent fault at a known place.

#include <lua.hpp>

namespace {

struct Crumb {
    volatile int number = 4711;  // stored for real
};

// What a null pointer does when somebody writes through it.
__attribute__((noinline)) int WriteThroughNull(lua_State*) {
    auto* volatile crumb = new Crumb;
    volatile int* nowhere = nullptr;
    // NOLINTNEXTLINE(clang-analyzer-core.NullDereference): that is what it is for
    *nowhere = crumb->number;  // the line that the dump has to name
    return 0;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int luaopen_fault(lua_State* L) {
    lua_pushcfunction(L, WriteThroughNull);
    return 1;
}
