#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "zelka_core/package/openssl_owners.h"

// Certificates that a test makes, and what their holders sign.

// The time at which all of this happens: 2027-01-15.
inline constexpr std::time_t kSigningNow = 1'800'000'000;

struct SignerWish {
    std::string name;  // CN
    const char* constraints = "critical,CA:FALSE";
    const char* purpose = "codeSigning";  // none if it is null
    long from = -30;                      // days from then
    long to = 30;
    const char* usage = "digitalSignature,keyCertSign,cRLSign";
    unsigned weakBits = 0;  // of an RSA key; otherwise the key is one of P-256
};

struct Signer {
    ZelkaCore::KeyOwner key;
    ZelkaCore::CertificateOwner certificate;

    // Issued by itself if there is no issuer.
    explicit Signer(const SignerWish& wish, const Signer* issuer = nullptr);

    [[nodiscard]] std::string Pem() const;
    [[nodiscard]] std::string KeyPem() const;
    // A revocation list, made and to be renewed so many days from then.
    [[nodiscard]] std::string Revoke(const std::vector<const Signer*>& revoked, long from = -1,
                                     long to = 1) const;
    // A detached signature in DER with the certificates of others.
    [[nodiscard]] std::string Sign(const std::string& bytes,
                                   const std::vector<const Signer*>& others = {},
                                   unsigned flags = CMS_DETACHED, const EVP_MD* digest = nullptr,
                                   const Signer* second = nullptr) const;
};
