// A Lua module that tells what OpenSSL works with in the process that loads it.

#include <openssl/evp.h>
#include <openssl/provider.h>

#include <lua.hpp>
#include <string>

namespace {

// state(): "fips" or "default", whether there is an algorithm to hash with, and the providers in
// use.
int State(lua_State* L) {
    std::string state = EVP_default_properties_is_fips_enabled(nullptr) == 1 ? "fips" : "default";
    EVP_MD* hash = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    state += hash != nullptr ? ", SHA256" : ", no SHA256";
    EVP_MD_free(hash);
    for (const char* name : {"fips", "fips_stand_in"}) {
        if (OSSL_PROVIDER_available(nullptr, name) == 1) {
            state += std::string(", ") + name + " provider";
        }
    }
    lua_pushlstring(L, state.data(), state.size());
    return 1;
}

}  // namespace

extern "C" [[gnu::visibility("default")]] int luaopen_crypto_probe(lua_State* L) {
    lua_newtable(L);
    lua_pushcfunction(L, State);
    lua_setfield(L, -2, "state");
    return 1;
}
