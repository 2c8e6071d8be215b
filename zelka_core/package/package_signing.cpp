#include "zelka_core/package/package_signing.h"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <utility>

#include "platform/file.h"
#include "zelka_core/package/certificate_chain.h"
#include "zelka_core/package/certificates.h"

namespace ZelkaCore {

namespace {

constexpr std::size_t kLargestFile = 0x100000;

bool ReadCertificateFile(const std::string& path, X509Stack* list, std::string& fault) {
    ScopedFd file;
    std::string content;
    std::string reason;
    std::error_code error = OpenRegularFile(path, file);
    error = error ? error : ReadAtMost(file, kLargestFile, content);
    if (error || !AddCertificates(content, list, reason)) {
        fault = path + ": " + (error ? error.message() : reason);
        return false;
    }
    return true;
}

KeyOwner ReadKey(const std::string& path, std::string& fault) {
    FileStream file;
    if (const auto error = OpenRegularStream(path, file)) {
        fault = path + ": " + error.message();
        return nullptr;
    }
    const BioOwner bio(BIO_new_fp(file.get(), BIO_NOCLOSE));
    KeyOwner key(bio ? PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr) : nullptr);
    if (!key) {
        fault = path + ": no private key can be read from it: " + TakeOpenSslFault();
    }
    return key;
}

std::string Sign(std::FILE* package, X509* certificate, EVP_PKEY* key, X509Stack* others,
                 std::string& fault) {
    std::rewind(package);
    const BioOwner content(BIO_new_fp(package, BIO_NOCLOSE));
    const EnvelopeOwner envelope(content ? CMS_sign(certificate, key, others, content.get(),
                                                    CMS_BINARY | CMS_DETACHED | CMS_NOSMIMECAP)
                                         : nullptr);
    unsigned char* bytes = nullptr;
    const int size = envelope ? i2d_CMS_ContentInfo(envelope.get(), &bytes) : 0;
    if (size <= 0) {
        fault = "cannot be signed: " + TakeOpenSslFault();
        return {};
    }
    std::string signature(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size));
    OPENSSL_free(bytes);
    return signature;
}

}  // namespace

bool MakeSignature(std::FILE* package, const SigningFiles& files, std::time_t now,
                   std::string& signature, std::string& signer, std::string& fault) {
    ERR_clear_error();
    const CertificateList others = NewCertificateList();
    if (!ReadCertificateFile(files.certificate, others.get(), fault) ||
        !(files.chain.empty() || ReadCertificateFile(files.chain, others.get(), fault))) {
        return false;
    }
    const CertificateOwner certificate(sk_X509_shift(others.get()));
    const KeyOwner key = ReadKey(files.key, fault);
    if (!key) {
        return false;
    }
    if (X509_check_private_key(certificate.get(), key.get()) != 1) {
        ERR_clear_error();
        fault = files.key + ": it is not the key of the certificate in " + files.certificate;
        return false;
    }
    if (std::string reason = SignerFault(certificate.get(), now); !reason.empty()) {
        fault = std::move(reason);
        return false;
    }
    std::string made = Sign(package, certificate.get(), key.get(), others.get(), fault);
    if (made.empty()) {
        return false;
    }
    signature = std::move(made);
    signer = SubjectOf(certificate.get());
    return true;
}

}  // namespace ZelkaCore
