#pragma once

#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>

// Scoped owners of OpenSSL's objects.

namespace ZelkaCore {

template <auto kFree>
struct OpenSslDeleter {
    template <typename Object>
    void operator()(Object* object) const {
        (void)kFree(object);
    }
};

using X509Stack = STACK_OF(X509);
using RevocationStack = STACK_OF(X509_CRL);

inline void FreeStack(X509Stack* stack) {
    sk_X509_pop_free(stack, X509_free);
}
inline void FreeStack(RevocationStack* stack) {
    sk_X509_CRL_pop_free(stack, X509_CRL_free);
}
struct StackDeleter {
    template <typename Stack>
    void operator()(Stack* stack) const {
        FreeStack(stack);
    }
};

template <typename Object, auto kFree>
using OpenSslOwner = std::unique_ptr<Object, OpenSslDeleter<kFree>>;

using BioOwner = OpenSslOwner<BIO, &BIO_free>;
using CertificateOwner = OpenSslOwner<X509, &X509_free>;
using RevocationListOwner = OpenSslOwner<X509_CRL, &X509_CRL_free>;
using EnvelopeOwner = OpenSslOwner<CMS_ContentInfo, &CMS_ContentInfo_free>;
using KeyOwner = OpenSslOwner<EVP_PKEY, &EVP_PKEY_free>;
using StoreOwner = OpenSslOwner<X509_STORE, &X509_STORE_free>;
using CertificateList = std::unique_ptr<X509Stack, StackDeleter>;
using RevocationLists = std::unique_ptr<RevocationStack, StackDeleter>;

}  // namespace ZelkaCore
