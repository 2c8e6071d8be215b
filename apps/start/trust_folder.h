#pragma once

#include <memory>
#include <string>
#include <vector>

struct x509_st;

// The certificates that the operator trusts.

inline constexpr const char* kTrustFolder = "/etc/zelka/trust";

struct CertificateFreer {
    void operator()(x509_st* certificate) const;
};
using CertificatePtr = std::unique_ptr<x509_st, CertificateFreer>;

struct TrustedCertificate {
    std::string file;
    CertificatePtr certificate;  // never null
};

// Why something in the folder, or the folder itself, is not to be trusted.
struct TrustFault {
    std::string file;
    std::string text;
};

struct TrustFolder {
    std::vector<TrustedCertificate> certificates;  // by the names of their files
    std::vector<TrustFault> faults;
};

// Reads the certificates of all files in the folder, PEM or DER, expired ones among them; nothing
// from folders below it, and no hidden file. A folder that is not there holds none. Folder and
// files have to be closed to what others write.
TrustFolder ReadTrustFolder(const std::string& folder);
