#include <gmock/gmock.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <memory>

#include "apps/zelkctl/check/checks.h"
#include "tests/support/scratch_folder.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

// "error FILE:LINE text", the file by its name.
std::vector<std::string> Told(const Findings& findings) {
    std::vector<std::string> told;
    for (const Finding& finding : findings.All()) {
        told.push_back((finding.severity == Finding::Severity::kError ? "error " : "warning ") +
                       fs::path(finding.file).filename().string() + ":" +
                       std::to_string(finding.line) + " " + finding.text);
    }
    return told;
}

// A certificate of its own issue that is valid from one time to another, in seconds from now.
std::string Certificate(const char* name, long from, long to, bool isPem) {
    const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_EC_gen("P-256"),
                                                                  EVP_PKEY_free);
    const std::unique_ptr<X509, decltype(&X509_free)> certificate(X509_new(), X509_free);
    X509_NAME* subject = X509_get_subject_name(certificate.get());
    const auto* text = reinterpret_cast<const unsigned char*>(name);
    EXPECT_TRUE(X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8, text, -1, -1, 0));
    X509_set_issuer_name(certificate.get(), subject);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), from);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), to);
    X509_set_pubkey(certificate.get(), key.get());
    EXPECT_GT(X509_sign(certificate.get(), key.get(), EVP_sha256()), 0);
    const std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new(BIO_s_mem()), BIO_free);
    EXPECT_TRUE(isPem ? PEM_write_bio_X509(bio.get(), certificate.get())
                      : i2d_X509_bio(bio.get(), certificate.get()));
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &bytes);
    return {bytes, static_cast<std::size_t>(size)};
}

std::vector<std::string> ToldOfTrust(const fs::path& folder) {
    Findings findings;
    CheckTrust(folder.string(), findings);
    return Told(findings);
}

TEST(CheckTrust, CertificatesOfBothFormsAreReadAndWhatIsNoneOrNotValidNowIsTold) {
    constexpr long kDay = 86400;
    const ScratchFolder scratch;
    EXPECT_THAT(ToldOfTrust(scratch.Path() / "none"), IsEmpty());
    const std::string good = Certificate("good", -kDay, kDay, true);
    scratch.Write("1.pem", good + Certificate("old\nline", -2 * kDay, -kDay, true));
    scratch.Write("2.der", Certificate("der", kDay, 2 * kDay, false));
    scratch.Write("3.pem", good + good.substr(0, good.size() / 2));
    scratch.Write("4.txt", "a note");
    scratch.Write("5.pem", good);
    scratch.Write(".hidden", "a note");
    fs::create_symlink("nowhere", scratch.Path() / "6.pem");
    fs::permissions(scratch.Path() / "5.pem", fs::perms{0664});
    EXPECT_THAT(ToldOfTrust(scratch.Path()),
                ElementsAre(HasSubstr("error 3.pem:0 holds a certificate that cannot be read"),
                            "error 4.txt:0 holds no certificate",
                            "error 5.pem:0 others than its owner may write to it",
                            HasSubstr("error 6.pem:0 No such file"),
                            HasSubstr("warning 1.pem:0 the certificate of 'CN=old\\0Aline' has "
                                      "expired"),
                            HasSubstr("warning 2.der:0 the certificate of 'CN=der' is not valid "
                                      "before")));
    fs::permissions(scratch.Path(), fs::perms{0777});
    EXPECT_THAT(ToldOfTrust(scratch.Path())[0], HasSubstr("others than its owner may write"));
    EXPECT_THAT(ToldOfTrust(scratch.Path() / "4.txt"), ElementsAre(HasSubstr("4.txt:0 Not a dir")));
}

TEST(StartCommand, OptionsOfTheOperatorWinOverTheFolderAndAWordInFrontIsTheProgram) {
    EXPECT_THAT(GivenCommand({"-a", "x", "--", "-y"}, "/opt/agent", "work").words,
                ElementsAre("/opt/agent", "--workdir", "work", "-a", "x", "--", "-y"));
    EXPECT_THAT(GivenCommand({"/other", "-w", "x"}, "/opt/agent", "work").words,
                ElementsAre("/other", "--workdir", "work", "-w", "x"));
    const StartCommand shipped = ServiceCommand("/opt/agent", "/somewhere/else/");
    EXPECT_TRUE(shipped.isAssumed && shipped.unit.empty());
    EXPECT_THAT(shipped.words, ElementsAre("/opt/agent", "--background", "--install_plugins",
                                           "--extdir", "ext", "--workdir", "/somewhere/else"));
}

}  // namespace
