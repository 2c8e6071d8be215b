#pragma once

#include <ctime>
#include <string>

#include "zelka_core/package/openssl_owners.h"

class ProtectedFolder;

namespace ZelkaCore {

// Where an administrator puts the certificates that packages have to be signed for.
inline constexpr const char* kTrustFolder = "/etc/zelka/trust";

// What lies in such a folder: certificates (*.pem, *.crt, *.cer) and revocation lists (*.crl), each
// file in PEM or DER. Other files and hidden ones do not count. Read once; for one thread at a
// time.
class TrustFolder {
  public:
    // Reads the folder. Where there is none it costs nothing else.
    explicit TrustFolder(const std::string& path);

    // Whether packages have to be signed. Not if there is no folder, or no certificate in it.
    [[nodiscard]] bool AsksForSignatures() const { return m_certificates || !m_fault.empty(); }

    // Why nobody is trusted, with the path in front: the folder or a file in it is open to others
    // (ProtectedFolder), cannot be read or is damaged. Empty if there is no reason.
    [[nodiscard]] const std::string& Fault() const { return m_fault; }

    // Why the holder of a certificate may not sign packages at that time (ChainFault); empty if it
    // may. There have to be certificates; `others` may be null.
    [[nodiscard]] std::string SignerFault(X509* signer, X509Stack* others, std::time_t now) const;

    // The certificates; null if there are none.
    [[nodiscard]] X509Stack* Certificates() const { return m_certificates.get(); }

  private:
    // Why one of its files cannot be taken; empty if it could, or does not count.
    std::string Take(const ProtectedFolder& folder, const std::string& name);

    std::string m_fault;
    CertificateList m_certificates;
    StoreOwner m_store;  // of the certificates and the lists
};

}  // namespace ZelkaCore
