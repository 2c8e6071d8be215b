#include <openssl/bio.h>
#include <openssl/x509.h>

#include <memory>

#include "apps/start/trust_folder.h"
#include "apps/zelkctl/check/checks.h"

namespace {

struct BioFreer {
    void operator()(BIO* bio) const { (void)BIO_free(bio); }
};
using Bio = std::unique_ptr<BIO, BioFreer>;

std::string Content(BIO* bio) {
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(bio, &bytes);
    return size > 0 ? std::string(bytes, static_cast<std::size_t>(size)) : std::string();
}

std::string SubjectOf(const X509* certificate) {
    const Bio bio(BIO_new(BIO_s_mem()));
    (void)X509_NAME_print_ex(bio.get(), X509_get_subject_name(certificate), 0, XN_FLAG_RFC2253);
    return Content(bio.get());
}

std::string TimeText(const ASN1_TIME* time) {
    const Bio bio(BIO_new(BIO_s_mem()));
    (void)ASN1_TIME_print(bio.get(), time);
    return Content(bio.get());
}

void CheckTimes(const TrustedCertificate& trusted, Findings& findings) {
    const X509* certificate = trusted.certificate.get();
    const ASN1_TIME* begin = X509_get0_notBefore(certificate);
    const ASN1_TIME* end = X509_get0_notAfter(certificate);
    if (X509_cmp_current_time(end) < 0) {
        findings.Warning(trusted.file, "the certificate of '" + SubjectOf(certificate) +
                                           "' has expired: " + TimeText(end));
    } else if (X509_cmp_current_time(begin) > 0) {
        findings.Warning(trusted.file, "the certificate of '" + SubjectOf(certificate) +
                                           "' is not valid before " + TimeText(begin));
    }
}

}  // namespace

void CheckTrust(const std::string& folder, Findings& findings) {
    const TrustFolder trust = ReadTrustFolder(folder);
    for (const TrustFault& fault : trust.faults) {
        findings.Error(fault.file, fault.text);
    }
    for (const TrustedCertificate& trusted : trust.certificates) {
        CheckTimes(trusted, findings);
    }
}
