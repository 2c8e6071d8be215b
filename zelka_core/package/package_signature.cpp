#include "zelka_core/package/package_signature.h"

#include <openssl/err.h>

#include <utility>

#include "zelka_core/package/certificates.h"
#include "zelka_core/package/trust_folder.h"

namespace ZelkaCore {

namespace {

constexpr int kLeastDigest = 32;  // bytes

using Progress = void (*)();

// Runs with every read of the package.
long OnRead(BIO* bio, int operation, const char*, std::size_t, int, long, int result,
            std::size_t*) {
    if (operation == BIO_CB_READ) {
        (*reinterpret_cast<Progress*>(BIO_get_callback_arg(bio)))();
    }
    return result;
}

EnvelopeOwner ReadEnvelope(const std::string& signature, std::string& fault) {
    const auto* at = reinterpret_cast<const unsigned char*>(signature.data());
    const unsigned char* const end = at + signature.size();
    EnvelopeOwner envelope(d2i_CMS_ContentInfo(nullptr, &at, static_cast<long>(signature.size())));
    ERR_clear_error();
    if (!envelope || at != end) {
        fault = "is damaged, or no CMS envelope in DER";
    } else if (OBJ_obj2nid(CMS_get0_type(envelope.get())) != NID_pkcs7_signed ||
               OBJ_obj2nid(CMS_get0_eContentType(envelope.get())) != NID_pkcs7_data) {
        fault = "is an envelope of another kind";
    } else if (CMS_is_detached(envelope.get()) != 1) {
        fault = "holds what it signs, and does not lie beside it";
    }
    return fault.empty() ? std::move(envelope) : nullptr;
}

// The certificate of the signer, which the envelope keeps.
X509* FindSigner(CMS_ContentInfo* envelope, X509Stack* known, std::string& fault) {
    const auto* const signers = CMS_get0_SignerInfos(envelope);
    const int count = signers == nullptr ? 0 : sk_CMS_SignerInfo_num(signers);
    if (count != 1) {
        fault = "has " + std::to_string(count) + " signers in place of one";
        return nullptr;
    }
    (void)CMS_set1_signers_certs(envelope, known, 0);
    X509* certificate = nullptr;
    X509_ALGOR* algorithm = nullptr;
    CMS_SignerInfo_get0_algs(sk_CMS_SignerInfo_value(signers, 0), nullptr, &certificate, &algorithm,
                             nullptr);
    const ASN1_OBJECT* digest = nullptr;
    X509_ALGOR_get0(&digest, nullptr, nullptr, algorithm);
    const EVP_MD* const method = EVP_get_digestbyobj(digest);
    if (method == nullptr || EVP_MD_get_size(method) < kLeastDigest) {
        fault = "is made with a digest that is too weak";
        return nullptr;
    }
    if (certificate == nullptr) {
        fault = "lacks the certificate of its signer";
    }
    return certificate;
}

std::string ContentFault(CMS_ContentInfo* envelope, X509Stack* known, std::FILE* package,
                         Progress progress) {
    std::rewind(package);
    const BioOwner content(BIO_new_fp(package, BIO_NOCLOSE));
    if (content && progress != nullptr) {
        BIO_set_callback_ex(content.get(), &OnRead);
        BIO_set_callback_arg(content.get(), reinterpret_cast<char*>(&progress));
    }
    const bool isGood = content && CMS_verify(envelope, known, nullptr, content.get(), nullptr,
                                              CMS_BINARY | CMS_NO_SIGNER_CERT_VERIFY) == 1;
    const int reason = ERR_GET_REASON(ERR_peek_last_error());
    const std::string text = TakeOpenSslFault();
    if (isGood) {
        return {};
    }
    const bool isOther =
        reason == CMS_R_CONTENT_VERIFY_ERROR || reason == CMS_R_VERIFICATION_FAILURE;
    return isOther ? "is of other bytes: the package was changed, or is another one"
                   : "cannot be checked: " + text;
}

std::string FaultOf(std::FILE* package, const std::string& signature, const TrustFolder& trust,
                    std::time_t now, Progress progress, std::string& signer) {
    std::string fault;
    const EnvelopeOwner envelope = ReadEnvelope(signature, fault);
    X509* const certificate =
        envelope ? FindSigner(envelope.get(), trust.Certificates(), fault) : nullptr;
    if (!fault.empty()) {
        return fault;
    }
    const CertificateList others(CMS_get1_certs(envelope.get()));
    fault = trust.SignerFault(certificate, others.get(), now);
    if (!fault.empty()) {
        return "counts for nothing: " + fault;
    }
    fault = ContentFault(envelope.get(), trust.Certificates(), package, progress);
    if (fault.empty()) {
        signer = SubjectOf(certificate);
    }
    return fault;
}

}  // namespace

bool CheckSignature(std::FILE* package, const std::string& signature, const TrustFolder& trust,
                    std::time_t now, void (*progress)(), std::string& signer, std::string& fault) {
    ERR_clear_error();
    if (!trust.Fault().empty()) {
        fault = trust.Fault();
        return false;
    }
    const std::string reason = FaultOf(package, signature, trust, now, progress, signer);
    if (!reason.empty()) {
        fault = "its signature " + reason;
    }
    return reason.empty();
}

}  // namespace ZelkaCore
