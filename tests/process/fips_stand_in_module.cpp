// A provider module that can be loaded in the place of a validated one and offers no algorithm.

#include <openssl/core.h>
#include <openssl/core_dispatch.h>

namespace {

const OSSL_ALGORITHM* Query(void*, int, int* noCache) {
    *noCache = 0;
    return nullptr;
}

const OSSL_DISPATCH kFunctions[] = {
    {OSSL_FUNC_PROVIDER_QUERY_OPERATION, reinterpret_cast<void (*)()>(Query)}, {0, nullptr}};

}  // namespace

extern "C" [[gnu::visibility("default")]] int OSSL_provider_init(const OSSL_CORE_HANDLE* handle,
                                                                 const OSSL_DISPATCH*,
                                                                 const OSSL_DISPATCH** out,
                                                                 void** context) {
    *out = kFunctions;
    *context = const_cast<OSSL_CORE_HANDLE*>(handle);
    return 1;
}
