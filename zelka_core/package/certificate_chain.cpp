#include "zelka_core/package/certificate_chain.h"

#include <openssl/err.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <new>

#include "zelka_core/package/certificates.h"

namespace ZelkaCore {

namespace {

constexpr int kSecurityLevel = 2;  // 112 bits
constexpr int kSecurityBits = 112;

using ContextOwner = OpenSslOwner<X509_STORE_CTX, &X509_STORE_CTX_free>;

std::string CertificateOf(const X509* certificate) {
    return "the certificate of '" + SubjectOf(certificate) + "' ";
}

std::string ClockText(std::time_t now) {
    return "; the clock says " + TimeText(now);
}

std::string NotBefore(const X509* certificate, std::time_t now) {
    return CertificateOf(certificate) + "is not valid before " +
           TimeText(X509_get0_notBefore(certificate)) + ClockText(now);
}

std::string NotAfter(const X509* certificate, std::time_t now) {
    return CertificateOf(certificate) + "has expired at " +
           TimeText(X509_get0_notAfter(certificate)) + ClockText(now);
}

// What may be done with the certificate's key: to sign code, or to issue certificates for that.
std::string PurposeFault(X509* certificate, bool isIssuer) {
    const bool hasPurposes = (X509_get_extension_flags(certificate) & EXFLAG_XKUSAGE) != 0;
    const auto purposes = X509_get_extended_key_usage(certificate);
    const bool isForCode = (purposes & XKU_CODE_SIGN) != 0;
    if (isIssuer) {
        return !hasPurposes || isForCode || (purposes & XKU_ANYEKU) != 0
                   ? ""
                   : CertificateOf(certificate) + "is not for issuers of code signing certificates";
    }
    if (!hasPurposes || !isForCode) {
        return CertificateOf(certificate) + "is not for code signing";
    }
    return (X509_get_key_usage(certificate) & KU_DIGITAL_SIGNATURE) != 0
               ? ""
               : CertificateOf(certificate) + "is not for signatures";
}

// A certificate whose issuer has no list need not stand by one. The list that a failure is about is
// kept for its text, as OpenSSL forgets it.
int OnStep(int isGood, X509_STORE_CTX* context) {
    X509_CRL* const list = X509_STORE_CTX_get0_current_crl(context);
    if (isGood == 0 && list != nullptr && X509_CRL_up_ref(list) == 1) {
        static_cast<RevocationListOwner*>(X509_STORE_CTX_get_app_data(context))->reset(list);
    }
    if (isGood != 0 || X509_STORE_CTX_get_error(context) != X509_V_ERR_UNABLE_TO_GET_CRL) {
        return isGood;
    }
    const X509* const certificate = X509_STORE_CTX_get_current_cert(context);
    const RevocationLists lists(
        X509_STORE_CTX_get1_crls(context, X509_get_issuer_name(certificate)));
    return lists == nullptr || sk_X509_CRL_num(lists.get()) == 0 ? 1 : 0;
}

std::string ListFault(const X509* certificate, const X509_CRL* list, bool isOld, std::time_t now) {
    return CertificateOf(certificate) + "cannot be judged: the revocation list of " +
           Quoted(X509_CRL_get_issuer(list)) +
           (isOld ? " has expired at " + TimeText(X509_CRL_get0_nextUpdate(list))
                  : " is not valid before " + TimeText(X509_CRL_get0_lastUpdate(list))) +
           ClockText(now);
}

bool LacksEnd(int error) {
    return error == X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT ||
           error == X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY ||
           error == X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE ||
           error == X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT ||
           error == X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN || error == X509_V_ERR_CERT_UNTRUSTED;
}

std::string FaultOf(X509_STORE_CTX* context, const X509* signer, const X509_CRL* list,
                    std::time_t now) {
    const int error = X509_STORE_CTX_get_error(context);
    const X509* const current = X509_STORE_CTX_get_current_cert(context);
    const X509* const certificate = current == nullptr ? signer : current;
    const bool isOld = error == X509_V_ERR_CRL_HAS_EXPIRED;
    if (list != nullptr && (isOld || error == X509_V_ERR_CRL_NOT_YET_VALID)) {
        return ListFault(certificate, list, isOld, now);
    }
    switch (error) {
        case X509_V_ERR_CERT_NOT_YET_VALID:
            return NotBefore(certificate, now);
        case X509_V_ERR_CERT_HAS_EXPIRED:
            return NotAfter(certificate, now);
        case X509_V_ERR_CERT_REVOKED:
            return CertificateOf(certificate) + "is revoked";
        default:
            return LacksEnd(error) ? CertificateOf(signer) + "leads to none in the trust folder"
                                   : CertificateOf(certificate) +
                                         "fails: " + X509_verify_cert_error_string(error);
    }
}

std::string PurposeFaultOf(const X509Stack* chain) {
    for (int i = 0; i < sk_X509_num(chain); ++i) {
        if (std::string fault = PurposeFault(sk_X509_value(chain, i), i > 0); !fault.empty()) {
            return fault;
        }
    }
    return {};
}

// One attempt; `error` receives OpenSSL's number.
std::string ChainFaultWith(unsigned long flags, X509_STORE* trusted, X509* signer,
                           X509Stack* others, std::time_t now, int& error) {
    const ContextOwner context(X509_STORE_CTX_new());
    if (!context || X509_STORE_CTX_init(context.get(), trusted, signer, others) != 1) {
        throw std::bad_alloc();
    }
    X509_VERIFY_PARAM* const rules = X509_STORE_CTX_get0_param(context.get());
    X509_VERIFY_PARAM_set_time(rules, now);
    X509_VERIFY_PARAM_set_auth_level(rules, kSecurityLevel);
    (void)X509_VERIFY_PARAM_set_flags(rules,
                                      X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL | flags);
    RevocationListOwner list;
    (void)X509_STORE_CTX_set_app_data(context.get(), &list);
    X509_STORE_CTX_set_verify_cb(context.get(), &OnStep);
    const bool isGood = X509_verify_cert(context.get()) == 1;
    ERR_clear_error();
    error = X509_STORE_CTX_get_error(context.get());
    return isGood ? PurposeFaultOf(X509_STORE_CTX_get0_chain(context.get()))
                  : FaultOf(context.get(), signer, list.get(), now);
}

}  // namespace

std::string SignerFault(X509* certificate, std::time_t now) {
    std::time_t moment = now;
    if (X509_cmp_time(X509_get0_notBefore(certificate), &moment) > 0) {
        return NotBefore(certificate, now);
    }
    if (X509_cmp_time(X509_get0_notAfter(certificate), &moment) < 0) {
        return NotAfter(certificate, now);
    }
    const EVP_PKEY* const key = X509_get0_pubkey(certificate);
    if (key == nullptr || EVP_PKEY_get_security_bits(key) < kSecurityBits) {
        return CertificateOf(certificate) + "has a key that is too weak";
    }
    return PurposeFault(certificate, false);
}

// A chain goes as far as it can, so that every revocation list on the way counts. Only one that
// then lacks an end may end at any trusted certificate.
std::string ChainFault(X509_STORE* trusted, X509* signer, X509Stack* others, std::time_t now) {
    int error = X509_V_OK;
    std::string fault = ChainFaultWith(0, trusted, signer, others, now, error);
    if (!fault.empty() && LacksEnd(error)) {
        fault = ChainFaultWith(X509_V_FLAG_PARTIAL_CHAIN, trusted, signer, others, now, error);
    }
    return fault;
}

}  // namespace ZelkaCore
