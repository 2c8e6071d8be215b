#pragma once

#include <ctime>
#include <string>

#include "zelka_core/package/openssl_owners.h"

namespace ZelkaCore {

// Why the holder of a certificate may not sign packages at that time, whoever has issued it: its
// period, its purpose, its key. Empty if there is no reason.
std::string SignerFault(X509* certificate, std::time_t now);

// The same with its chain, which has to end at a certificate of `trusted`; it may go through others
// there and through `others`, which need not be trusted. Where `trusted` has a revocation list of
// an issuer, the certificates that this one has issued have to stand by it, and it has to be of
// that time. Security below 112 bits is none.
std::string ChainFault(X509_STORE* trusted, X509* signer, X509Stack* others, std::time_t now);

}  // namespace ZelkaCore
