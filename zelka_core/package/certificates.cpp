#include "zelka_core/package/certificates.h"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <array>
#include <new>

#include "zelka_core/archive/shown_name.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

template <typename Pointer>
Pointer Required(Pointer pointer) {
    if (!pointer) {
        throw std::bad_alloc();
    }
    return pointer;
}

// Nobody is there to be asked for one.
int NoPassword(char*, int, int, void*) {
    return -1;
}

struct CertificateKind {
    using Owner = CertificateOwner;
    static constexpr const char* kName = "certificate";
    static constexpr auto kReadPem = &PEM_read_bio_X509;
    static constexpr auto kReadDer = &d2i_X509;
};

struct RevocationListKind {
    using Owner = RevocationListOwner;
    static constexpr const char* kName = "revocation list";
    static constexpr auto kReadPem = &PEM_read_bio_X509_CRL;
    static constexpr auto kReadDer = &d2i_X509_CRL;
};

// The next one of a PEM file. None, with an empty reason, at its end.
template <typename Kind>
typename Kind::Owner NextOf(BIO* bio, std::string& reason) {
    typename Kind::Owner object(Kind::kReadPem(bio, nullptr, &NoPassword, nullptr));
    if (!object) {
        const bool isEnd = ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
        const std::string fault = TakeOpenSslFault();
        reason = isEnd ? "" : fault;
    }
    return object;
}

// Hands all objects of a file to `add`, which takes a reference of its own and tells whether it
// did.
template <typename Kind, typename Add>
bool AddAll(const std::string& content, Add add, std::string& fault) {
    std::size_t count = 0;
    std::string reason;
    if (content.find("-----BEGIN ") != std::string::npos) {
        const auto bio =
            Required(BioOwner(BIO_new_mem_buf(content.data(), static_cast<int>(content.size()))));
        while (const auto object = NextOf<Kind>(bio.get(), reason)) {
            count += add(object.get()) ? 1U : 0U;
        }
    } else {
        const auto* at = reinterpret_cast<const unsigned char*>(content.data());
        const unsigned char* const end = at + content.size();
        const typename Kind::Owner object(
            Kind::kReadDer(nullptr, &at, static_cast<long>(content.size())));
        if (object && at == end) {
            count = add(object.get()) ? 1U : 0U;
        }
        ERR_clear_error();
    }
    if (!reason.empty()) {
        fault = std::string("holds a damaged ") + Kind::kName + ": " + reason;
    } else if (count == 0) {
        fault = std::string("holds no ") + Kind::kName;
    }
    return count > 0 && reason.empty();
}

std::string NameText(const X509_NAME* name) {
    // UTF-8 as it is, not byte by byte.
    constexpr unsigned long kFlags = XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB;
    const BioOwner bio = Required(BioOwner(BIO_new(BIO_s_mem())));
    (void)X509_NAME_print_ex(bio.get(), name, 0, kFlags);
    char* text = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &text);
    return ToUtf8(ShownName(FromUtf8(std::string(text, static_cast<std::size_t>(size)))));
}

std::string TimeText(const std::tm& utc) {
    std::array<char, sizeof "2026-01-31 12:00:00 UTC" + 8> text{};
    (void)std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S UTC", &utc);
    return text.data();
}

}  // namespace

CertificateList NewCertificateList() {
    return Required(CertificateList(sk_X509_new_null()));
}

StoreOwner NewCertificateStore() {
    return Required(StoreOwner(X509_STORE_new()));
}

bool AddCertificates(const std::string& content, X509Stack* list, std::string& fault) {
    const auto add = [list](X509* certificate) {
        return X509_add_cert(list, certificate, X509_ADD_FLAG_UP_REF | X509_ADD_FLAG_NO_DUP) == 1;
    };
    return AddAll<CertificateKind>(content, add, fault);
}

bool AddRevocationLists(const std::string& content, X509_STORE* store, std::string& fault) {
    const auto add = [store](X509_CRL* list) { return X509_STORE_add_crl(store, list) == 1; };
    return AddAll<RevocationListKind>(content, add, fault);
}

std::string Quoted(const X509_NAME* name) {
    return "'" + NameText(name) + "'";
}

std::string SubjectOf(const X509* certificate) {
    return NameText(X509_get_subject_name(certificate));
}

std::string TimeText(std::time_t time) {
    std::tm utc{};
    (void)gmtime_r(&time, &utc);
    return TimeText(utc);
}

std::string TimeText(const ASN1_TIME* time) {
    std::tm utc{};
    return ASN1_TIME_to_tm(time, &utc) == 1 ? TimeText(utc) : "no time";
}

std::string TakeOpenSslFault() {
    const char* const reason = ERR_reason_error_string(ERR_peek_last_error());
    ERR_clear_error();
    return reason == nullptr ? "unknown reason" : reason;
}

}  // namespace ZelkaCore
