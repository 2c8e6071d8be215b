#include "tests/support/signers.h"

#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <stdexcept>

using namespace ZelkaCore;

namespace {

void Require(bool done) {
    if (!done) {
        throw std::runtime_error("OpenSSL does not do it");
    }
}

// Puts the time so many days from then into what `set` takes.
void SetTime(ASN1_TIME* time, long days) {
    std::time_t then = kSigningNow;
    Require(X509_time_adj_ex(time, static_cast<int>(days), 0, &then) != nullptr);
}

void AddExtension(X509* certificate, X509* issuer, int kind, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const OpenSslOwner<X509_EXTENSION, &X509_EXTENSION_free> extension(
        X509V3_EXT_nconf_nid(nullptr, &context, kind, value));
    Require(extension && X509_add_ext(certificate, extension.get(), -1) == 1);
}

template <typename Write>
std::string Written(Write write) {
    const BioOwner bio(BIO_new(BIO_s_mem()));
    Require(write(bio.get()) == 1);
    char* text = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &text);
    return {text, static_cast<std::size_t>(size)};
}

}  // namespace

Signer::Signer(const SignerWish& wish, const Signer* issuer)
    : key(wish.weakBits != 0 ? EVP_RSA_gen(wish.weakBits)
                             : EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256")),
      certificate(X509_new()) {
    static long serial = 0;
    X509* const made = certificate.get();
    X509* const by = issuer == nullptr ? made : issuer->certificate.get();
    const auto* const name = reinterpret_cast<const unsigned char*>(wish.name.c_str());
    Require(key && X509_set_version(made, 2) == 1 &&  // the third one
            ASN1_INTEGER_set(X509_get_serialNumber(made), ++serial) == 1 &&
            X509_NAME_add_entry_by_txt(X509_get_subject_name(made), "CN", MBSTRING_UTF8, name, -1,
                                       -1, 0) == 1 &&
            X509_set_issuer_name(made, X509_get_subject_name(by)) == 1 &&
            X509_set_pubkey(made, key.get()) == 1);
    SetTime(X509_getm_notBefore(made), wish.from);
    SetTime(X509_getm_notAfter(made), wish.to);
    AddExtension(made, by, NID_subject_key_identifier, "hash");
    AddExtension(made, by, NID_basic_constraints, wish.constraints);
    AddExtension(made, by, NID_key_usage, wish.usage);
    if (wish.purpose != nullptr) {
        AddExtension(made, by, NID_ext_key_usage, wish.purpose);
    }
    Require(X509_sign(made, (issuer == nullptr ? *this : *issuer).key.get(), EVP_sha256()) > 0);
}

std::string Signer::Pem() const {
    return Written([&](BIO* bio) { return PEM_write_bio_X509(bio, certificate.get()); });
}

std::string Signer::KeyPem() const {
    return Written([&](BIO* bio) {
        return PEM_write_bio_PrivateKey(bio, key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    });
}

std::string Signer::Revoke(const std::vector<const Signer*>& revoked, long from, long to) const {
    const RevocationListOwner list(X509_CRL_new());
    const OpenSslOwner<ASN1_TIME, &ASN1_TIME_free> time(ASN1_TIME_new());
    Require(X509_CRL_set_version(list.get(), 1) == 1 &&
            X509_CRL_set_issuer_name(list.get(), X509_get_subject_name(certificate.get())) == 1);
    SetTime(time.get(), from);
    Require(X509_CRL_set1_lastUpdate(list.get(), time.get()) == 1);
    for (const Signer* signer : revoked) {
        OpenSslOwner<X509_REVOKED, &X509_REVOKED_free> entry(X509_REVOKED_new());
        Require(X509_REVOKED_set_serialNumber(
                    entry.get(), X509_get_serialNumber(signer->certificate.get())) == 1 &&
                X509_REVOKED_set_revocationDate(entry.get(), time.get()) == 1 &&
                X509_CRL_add0_revoked(list.get(), entry.release()) == 1);
    }
    SetTime(time.get(), to);
    Require(X509_CRL_set1_nextUpdate(list.get(), time.get()) == 1 &&
            X509_CRL_sign(list.get(), key.get(), EVP_sha256()) > 0);
    return Written([&](BIO* bio) { return PEM_write_bio_X509_CRL(bio, list.get()); });
}

std::string Signer::Sign(const std::string& bytes, const std::vector<const Signer*>& others,
                         unsigned flags, const EVP_MD* digest, const Signer* second) const {
    const BioOwner content(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
    const unsigned all = flags | CMS_BINARY | CMS_PARTIAL;
    const EnvelopeOwner envelope(CMS_sign(nullptr, nullptr, nullptr, nullptr, all));
    for (const Signer* signer : {this, second}) {
        Require(signer == nullptr || CMS_add1_signer(envelope.get(), signer->certificate.get(),
                                                     signer->key.get(), digest, all) != nullptr);
    }
    for (const Signer* other : others) {
        Require(CMS_add1_cert(envelope.get(), other->certificate.get()) == 1);
    }
    Require(CMS_final(envelope.get(), content.get(), nullptr, all) == 1);
    return Written([&](BIO* bio) { return i2d_CMS_bio(bio, envelope.get()); });
}
