// What the cases load into the agent: the Lua modules `fault`, `fault_broken` and `crypto_state`,
// and a provider of OpenSSL that can be loaded in the place of a validated one and offers no
// algorithm.

#include <openssl/core.h>
#include <openssl/core_dispatch.h>
#include <openssl/evp.h>
#include <openssl/provider.h>

#include <lua.hpp>

namespace {

// What a null pointer does when somebody writes through it.
__attribute__((noinline)) int WriteThroughNull(lua_State*) {
    volatile int* nowhere = nullptr;
    // NOLINTNEXTLINE(clang-analyzer-core.NullDereference): that is what it is for
    *nowhere = 4711;  // the line that the dump has to name
    return 0;
}

// Breaks the record of the running level of a Lua thread, whose address is the fifth pointer of the
// thread's own record: "gone" makes it point nowhere, "endless" has each level called by itself.
// Then faults.
int BreakState(lua_State* L) {
    constexpr int kLevel = 4;
    constexpr int kPrevious = 2;  // in the record of a level
    void** level = reinterpret_cast<void***>(L)[kLevel];
    if (*luaL_checkstring(L, 1) == 'g') {
        reinterpret_cast<void**>(L)[kLevel] = reinterpret_cast<void*>(0x10);
    } else {
        level[kPrevious] = level;
    }
    return WriteThroughNull(L);
}

const OSSL_ALGORITHM* NoAlgorithm(void*, int, int* noCache) {
    *noCache = 0;
    return nullptr;
}

const OSSL_DISPATCH kProvider[] = {
    {OSSL_FUNC_PROVIDER_QUERY_OPERATION, reinterpret_cast<void (*)()>(NoAlgorithm)}, {0, nullptr}};

}  // namespace

extern "C" {

[[gnu::visibility("default")]] int luaopen_fault(lua_State* L) {
    lua_pushcfunction(L, WriteThroughNull);
    return 1;
}

[[gnu::visibility("default")]] int luaopen_fault_broken(lua_State* L) {
    lua_pushcfunction(L, BreakState);
    return 1;
}

// Whether only validated algorithms are asked for, whether there is one to hash with, and which of
// the providers are in use.
[[gnu::visibility("default")]] int luaopen_crypto_state(lua_State* L) {
    EVP_MD* hash = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    lua_pushfstring(L, "fips=%d SHA256=%d providers: fips=%d stand_in=%d",
                    EVP_default_properties_is_fips_enabled(nullptr), hash != nullptr,
                    OSSL_PROVIDER_available(nullptr, "fips"),
                    OSSL_PROVIDER_available(nullptr, "stand_in"));
    EVP_MD_free(hash);
    return 1;
}

[[gnu::visibility("default")]] int OSSL_provider_init(const OSSL_CORE_HANDLE* handle,
                                                      const OSSL_DISPATCH*,
                                                      const OSSL_DISPATCH** out, void** context) {
    *out = kProvider;
    *context = const_cast<OSSL_CORE_HANDLE*>(handle);
    return 1;
}

}  // extern "C"
