#include "zelka_core/package/package_signature.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <string>

#include "platform/file.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/signers.h"
#include "zelka_core/package/package_signing.h"
#include "zelka_core/package/signed_package.h"
#include "zelka_core/package/trust_folder.h"

using namespace ZelkaCore;
using testing::HasSubstr;

namespace {

constexpr const char* kPackage = "the bytes of a package";
const char* const kCa = "critical,CA:TRUE";

// A folder of trust, and what comes of signatures there.
class SignatureTest : public testing::Test {
  protected:
    SignatureTest() { (void)umask(022); }

    void Trust(const std::string& name, const std::string& content) const {
        (void)m_scratch.Write("trust/" + name, content);
    }

    // The signer, or why there is none.
    [[nodiscard]] std::string Check(const std::string& signature,
                                    const std::string& bytes = kPackage) const {
        const fs::path path = m_scratch.Write("package", bytes);
        FileStream file;
        EXPECT_FALSE(OpenRegularStream(path, file));
        std::string signer;
        std::string fault;
        const bool isGood = CheckSignature(file.get(), signature, TrustFolder(TrustPath()),
                                           kSigningNow, nullptr, signer, fault);
        EXPECT_EQ(isGood, fault.empty());
        EXPECT_EQ(isGood, !signer.empty());
        return signer + fault;
    }

    [[nodiscard]] std::string TrustPath() const { return m_scratch.Path() / "trust"; }

    void TrustNobody() const { (void)fs::remove_all(TrustPath()); }

    const ScratchFolder m_scratch;
    const Signer m_root{{.name = "Root", .constraints = kCa, .purpose = nullptr}};
    const Signer m_middle{{.name = "Middle", .constraints = kCa, .purpose = nullptr}, &m_root};
    const Signer m_maker{{.name = "Mäker, Ltd"}, &m_middle};
    const Signer m_stranger{{.name = "Stranger"}};
};

TEST_F(SignatureTest, ChainsEndAtAnyTrustedCertificateAndGoThroughThoseInTheEnvelope) {
    const std::string good = m_maker.Sign(kPackage, {&m_middle});
    Trust("root.PEM", "a word before\n" + m_root.Pem());
    EXPECT_EQ(Check(good), "CN=Mäker\\, Ltd");
    EXPECT_EQ(Check(m_maker.Sign(kPackage, {&m_middle, &m_root, &m_stranger})), "CN=Mäker\\, Ltd");
    EXPECT_THAT(Check(m_maker.Sign(kPackage)), HasSubstr("leads to none in the trust folder"));
    EXPECT_THAT(Check(m_stranger.Sign(kPackage)), HasSubstr("'CN=Stranger' leads to none"));
    EXPECT_THAT(Check(m_maker.Sign(kPackage, {&m_middle}, CMS_DETACHED | CMS_NOCERTS)),
                HasSubstr("lacks the certificate of its signer"));

    TrustNobody();
    Trust("several.crt", m_stranger.Pem() + m_middle.Pem());
    EXPECT_EQ(Check(m_maker.Sign(kPackage)), "CN=Mäker\\, Ltd");
    EXPECT_EQ(Check(m_stranger.Sign(kPackage)), "CN=Stranger");
    TrustNobody();
    Trust("maker.cer", m_maker.Pem());
    EXPECT_EQ(Check(m_maker.Sign(kPackage, {}, CMS_DETACHED | CMS_NOCERTS)), "CN=Mäker\\, Ltd");
    EXPECT_THAT(Check(m_stranger.Sign(kPackage)), HasSubstr("leads to none"));
}

TEST_F(SignatureTest, CertificatesHaveTheirTimeTheirPurposeAndAStrongKey) {
    Trust("root.pem", m_root.Pem());
    const Signer oldIssuer({.name = "Old", .constraints = kCa, .to = -1}, &m_root);
    const Signer webIssuer({.name = "Web", .constraints = kCa, .purpose = "serverAuth"}, &m_root);
    const Signer noIssuer({.name = "None"}, &m_root);
    struct Row {
        SignerWish wish;
        const Signer* issuer;
        const char* fault;
    };
    for (const Row& row : {
             Row{{.name = "a"}, &m_root, "CN=a"},
             Row{{.name = "b", .to = -1},
                 &m_root,
                 "'CN=b' has expired at 2027-01-14 08:00:00 UTC; the clock says 2027-01-15 "},
             Row{{.name = "c", .from = 1},
                 &m_root,
                 "'CN=c' is not valid before 2027-01-16 08:00:00 UTC; the clock says 2027-01-15 "},
             Row{{.name = "d", .purpose = nullptr}, &m_root, "'CN=d' is not for code signing"},
             Row{{.name = "e", .purpose = "serverAuth,emailProtection,anyExtendedKeyUsage"},
                 &m_root,
                 "'CN=e' is not for code signing"},
             Row{{.name = "f", .usage = "keyEncipherment"}, &m_root, "is not for signatures"},
             Row{{.name = "g", .weakBits = 1024},
                 &m_root,
                 "'CN=g' fails: EE certificate key too weak"},
             Row{{.name = "h"}, &oldIssuer, "'CN=Old' has expired at"},
             Row{{.name = "i"}, &webIssuer, "'CN=Web' is not for issuers of code signing"},
             Row{{.name = "j"}, &noIssuer, "'CN=None' fails: invalid CA certificate"},
         }) {
        const Signer signer(row.wish, row.issuer);
        EXPECT_THAT(Check(signer.Sign(kPackage, {row.issuer})), HasSubstr(row.fault));
    }
}

TEST_F(SignatureTest, RevocationListsOfTheFolderCountForWhomTheyAreThere) {
    const std::string signature = m_maker.Sign(kPackage, {&m_middle});
    Trust("root.pem", m_root.Pem());
    Trust("stranger.crl", m_stranger.Revoke({&m_maker, &m_middle}));
    Trust("middle.crl", m_middle.Revoke({&m_stranger}));
    EXPECT_EQ(Check(signature), "CN=Mäker\\, Ltd");
    Trust("middle.crl", m_middle.Revoke({&m_maker}));
    EXPECT_THAT(Check(signature), HasSubstr("ker\\, Ltd' is revoked"));
    Trust("middle.crl", m_middle.Revoke({}, -2, -1));
    EXPECT_THAT(Check(signature), HasSubstr("the revocation list of 'CN=Middle' has expired at"));
    Trust("middle.crl", m_middle.Revoke({}, 1, 2));
    EXPECT_THAT(Check(signature),
                HasSubstr("the revocation list of 'CN=Middle' is not valid befor"));
    const Signer impostor({.name = "Middle", .constraints = kCa});
    Trust("middle.crl", impostor.Revoke({}));
    EXPECT_THAT(Check(signature), HasSubstr("fails: CRL signature failure"));

    // A list counts for a certificate that is trusted itself, too, as long as its issuer is.
    Trust("middle.crl", m_middle.Revoke({}));
    Trust("root.crl", m_root.Revoke({&m_middle}));
    Trust("middle.pem", m_middle.Pem());
    EXPECT_THAT(Check(signature), HasSubstr("'CN=Middle' is revoked"));
}

TEST_F(SignatureTest, OtherBytesAndOddEnvelopesAreRefused) {
    Trust("stranger.pem", m_stranger.Pem());
    const std::string good = m_stranger.Sign(kPackage);
    EXPECT_EQ(Check(m_stranger.Sign("\r\n \n"), "\r\n \n"), "CN=Stranger");
    EXPECT_EQ(Check(m_stranger.Sign(""), ""), "CN=Stranger");
    for (const auto& [signature, fault] : std::vector<std::pair<std::string, const char*>>{
             {m_stranger.Sign(std::string(kPackage) + "\n"), "is of other bytes"},
             {m_stranger.Sign("other", {}, CMS_DETACHED | CMS_NOATTR), "is of other bytes"},
             {"", "is damaged"},
             {good.substr(0, good.size() - 1), "is damaged"},
             {good + "\n", "is damaged"},
             {m_stranger.Pem(), "is damaged"},
             {m_stranger.Sign(kPackage, {}, 0), "holds what it signs"},
             {m_stranger.Sign(kPackage, {}, CMS_DETACHED, nullptr, &m_maker), "has 2 signers"},
             {m_stranger.Sign(kPackage, {}, CMS_DETACHED, EVP_sha1()), "a digest that is too weak"},
         }) {
        EXPECT_THAT(Check(signature), HasSubstr(fault));
    }
}

TEST_F(SignatureTest, AFolderThatOthersCanChangeOrThatIsDamagedTrustsNobody) {
    const auto faultOf = [&] { return TrustFolder(TrustPath()).Fault(); };
    EXPECT_FALSE(TrustFolder(TrustPath()).AsksForSignatures());
    Trust("read.me", "nothing");
    Trust(".hidden.pem", "nothing");
    EXPECT_FALSE(TrustFolder(TrustPath()).AsksForSignatures());
    Trust("stranger.pem", m_stranger.Pem());
    ASSERT_EQ(Check(m_stranger.Sign(kPackage)), "CN=Stranger");
    for (const char* place : {"", "/stranger.pem"}) {
        const std::string path = TrustPath() + place;
        for (const mode_t open : {0020U, 0002U}) {
            ASSERT_EQ(chmod(path.c_str(), 0755U | open), 0);
            EXPECT_THAT(faultOf(), HasSubstr(path + "' cannot be relied on: others than its"));
            EXPECT_EQ(Check(m_stranger.Sign(kPackage)), faultOf());
        }
        ASSERT_EQ(chmod(path.c_str(), 0755), 0);
        if (geteuid() == 0) {
            ASSERT_EQ(chown(path.c_str(), 12345, 0), 0);
            EXPECT_THAT(faultOf(), HasSubstr("it belongs to somebody other than root"));
            ASSERT_EQ(chown(path.c_str(), 0, 0), 0);
        }
    }
    ASSERT_EQ(faultOf(), "");
    for (const auto& [name, content, fault] :
         std::vector<std::tuple<const char*, std::string, const char*>>{
             {"key.pem", m_stranger.KeyPem(), "key.pem' holds no certificate"},
             {"cut.crt", m_root.Pem().substr(0, 300), "cut.crt' holds a damaged certificate: "},
             {"empty.cer", "", "empty.cer' holds no certificate"},
             {"a.crl", m_root.Pem(), "a.crl' holds no revocation list"},
             {"large.pem", std::string(0x100001, ' '),
              "large.pem' cannot be relied on: File too"}}) {
        Trust(name, content);
        EXPECT_THAT(faultOf(), HasSubstr(fault));
        (void)fs::remove(TrustPath() + "/" + name);
    }
    fs::create_symlink("stranger.pem", TrustPath() + "/link.pem");
    EXPECT_THAT(faultOf(), HasSubstr("link.pem' cannot be relied on: it is not a regular file"));
    fs::rename(TrustPath(), m_scratch.Path() / "real");
    fs::create_symlink("real", TrustPath());
    EXPECT_THAT(faultOf(), HasSubstr("trust' cannot be relied on: Not a directory"));
}

TEST_F(SignatureTest, WhatWasJudgedIsACopyThatNobodyElseReaches) {
    const Signer now({.name = "Now", .from = -10'000, .to = 100'000});
    Trust("now.pem", now.Pem());
    const TrustFolder trust(TrustPath());
    fs::create_directory(m_scratch.Path() / "work");
    FolderTree folder;
    ASSERT_FALSE(folder.Open(m_scratch.Path()));
    SignedPackage package;
    std::string fault;
    const auto opens = [&](const char* name) {
        fault.clear();
        return OpenSignedPackage(folder, name, m_scratch.Path() / "work", trust, nullptr, package,
                                 fault);
    };
    const std::string bytes = std::string(3'000'000, 'x') + "end";
    const fs::path path = m_scratch.Write("X.zkp", bytes);
    EXPECT_FALSE(opens("X.zkp"));
    EXPECT_EQ(fault, "is not signed: there is no 'X.zkp.p7s' beside it");
    (void)m_scratch.Write("X.zkp.p7s", now.Sign(bytes));
    (void)m_scratch.Write("work/.zelka-unzip-package", "left by a kill");
    ASSERT_TRUE(opens("X.zkp")) << fault;
    EXPECT_TRUE(fs::is_empty(m_scratch.Path() / "work"));
    EXPECT_EQ(package.signer, "CN=Now");
    (void)m_scratch.Write("X.zkp", "changed meanwhile");
    std::string content(bytes.size() + 1, '\0');
    std::rewind(package.content.get());
    content.resize(std::fread(content.data(), 1, content.size(), package.content.get()));
    EXPECT_EQ(content, bytes);
    EXPECT_NE(package.package, VersionOf(FileStream(std::fopen(path.c_str(), "r")).get()));
    EXPECT_FALSE(opens("X.zkp"));
    EXPECT_THAT(fault, HasSubstr("is of other bytes"));
    fs::create_symlink("X.zkp", m_scratch.Path() / "link.zkp");
    EXPECT_FALSE(opens("link.zkp"));
    EXPECT_EQ(fault, "cannot be opened: it is not a regular file");
}

TEST_F(SignatureTest, WhatIsSignedIsGoodAndWithUnfitCertificatesNothingIs) {
    Trust("root.pem", m_root.Pem());
    const auto write = [&](const char* name, const std::string& text) {
        return m_scratch.Write(name, text).string();
    };
    const std::string key = write("key", m_maker.KeyPem());
    const std::string certificate = write("certificate", m_maker.Pem());
    const std::string chain = write("chain", m_maker.Pem() + m_middle.Pem() + m_middle.Pem());
    FileStream package;
    ASSERT_FALSE(OpenRegularStream(write("to be signed", kPackage), package));
    std::string signature;
    std::string signer;
    std::string fault;
    const auto signs = [&](const SigningFiles& files, std::time_t now = kSigningNow) {
        return MakeSignature(package.get(), files, now, signature, signer, fault);
    };
    ASSERT_TRUE(signs({.key = key, .certificate = certificate, .chain = chain})) << fault;
    EXPECT_EQ(signer, Check(signature));
    ASSERT_TRUE(signs({.key = key, .certificate = chain})) << fault;
    EXPECT_EQ(signer, Check(signature));
    signature = "as before";
    EXPECT_FALSE(
        signs({.key = key, .certificate = certificate}, kSigningNow - std::time_t{86400} * 31));
    EXPECT_THAT(fault, HasSubstr("is not valid before"));
    EXPECT_FALSE(
        signs({.key = key, .certificate = certificate}, kSigningNow + std::time_t{86400} * 31));
    EXPECT_THAT(fault, HasSubstr("has expired"));
    EXPECT_FALSE(signs({.key = key, .certificate = write("middle", m_middle.Pem())}));
    EXPECT_THAT(fault, HasSubstr("it is not the key of the certificate in"));
    EXPECT_FALSE(signs({.key = write("middle key", m_middle.KeyPem()),
                        .certificate = write("middle", m_middle.Pem())}));
    EXPECT_THAT(fault, HasSubstr("'CN=Middle' is not for code signing"));
    EXPECT_FALSE(signs({.key = certificate, .certificate = certificate}));
    EXPECT_THAT(fault, HasSubstr("no private key can be read from it"));
    EXPECT_EQ(signature, "as before");
}

}  // namespace
