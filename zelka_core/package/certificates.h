#pragma once

#include <ctime>
#include <string>

#include "zelka_core/package/openssl_owners.h"

namespace ZelkaCore {

// Certificates and revocation lists as OpenSSL has them, read from files and put into words. Any
// thread; what goes wrong leaves nothing in OpenSSL's queue of errors.

// Without memory for an empty one: std::bad_alloc.
CertificateList NewCertificateList();
StoreOwner NewCertificateStore();

// Adds the certificates that a file holds, in PEM, beside whatever else, or one in DER; those that
// are in the list already do not come twice. False, with the reason in `fault`, if it holds none,
// or one that is damaged; some may have been added then.
bool AddCertificates(const std::string& content, X509Stack* list, std::string& fault);

// The same for revocation lists.
bool AddRevocationLists(const std::string& content, X509_STORE* store, std::string& fault);

// The text of RFC 2253, in quotes and as ShownName.
std::string Quoted(const X509_NAME* name);
// The same without the quotes, for the subject.
std::string SubjectOf(const X509* certificate);

// "2026-01-31 12:00:00 UTC".
std::string TimeText(std::time_t time);
std::string TimeText(const ASN1_TIME* time);

// Why OpenSSL's last operation in this thread has failed; forgets it.
std::string TakeOpenSslFault();

}  // namespace ZelkaCore
