#include "apps/zelkctl/check/checks.h"
#include "zelka_core/package/certificates.h"
#include "zelka_core/package/trust_folder.h"

using ZelkaCore::SubjectOf;
using ZelkaCore::TimeText;

namespace {

void CheckTimes(const std::string& folder, const X509* certificate, Findings& findings) {
    const ASN1_TIME* begin = X509_get0_notBefore(certificate);
    const ASN1_TIME* end = X509_get0_notAfter(certificate);
    const std::string subject = "the certificate of '" + SubjectOf(certificate) + "'";
    if (X509_cmp_current_time(end) < 0) {
        findings.Warning(folder, subject + " has expired: " + TimeText(end));
    } else if (X509_cmp_current_time(begin) > 0) {
        findings.Warning(folder, subject + " is not valid before " + TimeText(begin));
    }
}

}  // namespace

void CheckTrust(const std::string& folder, Findings& findings) {
    const ZelkaCore::TrustFolder trust(folder);
    if (!trust.Fault().empty()) {
        findings.Error(folder, trust.Fault());
    }
    for (int i = 0; i < sk_X509_num(trust.Certificates()); ++i) {
        CheckTimes(folder, sk_X509_value(trust.Certificates(), i), findings);
    }
}
