#include "zelka_core/package/trust_folder.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

#include "platform/protected_folder.h"
#include "zelka_core/archive/shown_name.h"
#include "zelka_core/package/certificate_chain.h"
#include "zelka_core/package/certificates.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

constexpr std::size_t kLargestFile = 0x100000;
constexpr const char* kListEnding = ".crl";
constexpr std::array<std::string_view, 3> kCertificateEndings{".pem", ".crt", ".cer"};

// In any case: a certificate that is passed over would be a demand less.
bool EndsWith(std::string_view name, std::string_view ending) {
    const auto isSame = [](char a, char b) { return (a >= 'A' && a <= 'Z' ? a + 32 : a) == b; };
    return name.size() >= ending.size() &&
           std::equal(name.end() - ending.size(), name.end(), ending.begin(), ending.end(), isSame);
}

bool IsCertificateName(std::string_view name) {
    return std::any_of(kCertificateEndings.begin(), kCertificateEndings.end(),
                       [&](std::string_view ending) { return EndsWith(name, ending); });
}

std::string Shown(const std::string& path) {
    return "'" + ToUtf8(ShownName(FromUtf8(path))) + "'";
}

}  // namespace

TrustFolder::TrustFolder(const std::string& path) {
    ProtectedFolder folder;
    std::vector<std::string> names;
    std::error_code error = folder.Open(path);
    if (error == std::errc::no_such_file_or_directory) {
        return;
    }
    error = error ? error : folder.List(names);
    if (error) {
        m_fault = Shown(path) + " cannot be relied on: " + error.message();
        return;
    }
    for (const std::string& name : names) {
        if (const std::string fault = Take(folder, name); !fault.empty()) {
            std::string file = path;
            file.append("/").append(name);
            m_fault = Shown(file).append(" ").append(fault);
            return;
        }
    }
    for (int i = 0; m_certificates && i < sk_X509_num(m_certificates.get()); ++i) {
        (void)X509_STORE_add_cert(m_store.get(), sk_X509_value(m_certificates.get(), i));
    }
}

std::string TrustFolder::Take(const ProtectedFolder& folder, const std::string& name) {
    const bool isList = EndsWith(name, kListEnding);
    if (name.starts_with('.') || !(isList || IsCertificateName(name))) {
        return {};
    }
    std::string content;
    if (const auto error = folder.Read(name, kLargestFile, content)) {
        return "cannot be relied on: " + error.message();
    }
    if (!m_store) {
        m_store = NewCertificateStore();
    }
    if (!isList && !m_certificates) {
        m_certificates = NewCertificateList();
    }
    std::string fault;
    (void)(isList ? AddRevocationLists(content, m_store.get(), fault)
                  : AddCertificates(content, m_certificates.get(), fault));
    return fault;
}

std::string TrustFolder::SignerFault(X509* signer, X509Stack* others, std::time_t now) const {
    return ChainFault(m_store.get(), signer, others, now);
}

}  // namespace ZelkaCore
