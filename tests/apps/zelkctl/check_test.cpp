#include <gmock/gmock.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <unistd.h>

#include <memory>

#include "apps/zelkctl/check/checks.h"
#include "platform/regkey.h"
#include "tests/support/child_process.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/zip_builder.h"
#include "zelka_core/store/agent_database.h"

using testing::Contains;
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
    const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(
        EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"), EVP_PKEY_free);
    const std::unique_ptr<X509, decltype(&X509_free)> certificate(X509_new(), X509_free);
    X509_NAME* subject = X509_get_subject_name(certificate.get());
    const auto* text = reinterpret_cast<const unsigned char*>(name);
    EXPECT_TRUE(X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8, text, -1, -1, 0));
    X509_set_issuer_name(certificate.get(), subject);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), from);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), to);
    X509_set_pubkey(certificate.get(), key.get());
    EXPECT_GT(X509_sign(certificate.get(), key.get(), nullptr), 0);
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

TEST(CheckTrust, WhatCannotBeReliedOnAndWhatIsNotValidNowIsTold) {
    constexpr long kDay = 86400;
    const ScratchFolder scratch;
    EXPECT_THAT(ToldOfTrust(scratch.Path() / "none"), IsEmpty());
    scratch.Write("1.pem", Certificate("good", -kDay, kDay, true) +
                               Certificate("old\nline", -2 * kDay, -kDay, true));
    scratch.Write("2.crt", Certificate("der", kDay, 2 * kDay, false));
    scratch.Write("4.txt", "a note");
    EXPECT_THAT(ToldOfTrust(scratch.Path()),
                ElementsAre(HasSubstr("'CN=old\\0Aline' has expired"),
                            HasSubstr("'CN=der' is not valid before")));
    fs::permissions(scratch.Path() / "2.crt", fs::perms{0664});
    EXPECT_THAT(ToldOfTrust(scratch.Path()), Contains(HasSubstr("2.crt' cannot be relied on")));
}

// A folder with a program and a working folder in it, and the start of an application there.
class CheckStartTest : public testing::Test {
  protected:
    CheckStartTest() {
        fs::create_directory(m_folder.Path() / "work");
        m_agent = m_folder.Write("bin/zelk_agent", "").string();
        UseRegistryFile(Path("registry.ini"));
    }

    [[nodiscard]] std::string Path(const std::string& name) const {
        return (m_folder.Path() / name).string();
    }

    using Subject = void (*)(const Start&, Findings&);

    // What a subject finds in a start with these options.
    std::vector<std::string> Check(Subject subject, std::vector<std::string> options = {}) const {
        options.insert(options.begin(), {"-l", Path("?.lua"), "-c", Path("?.so"), "-d",
                                         "app.path.ini.global=" + Path("global.ini")});
        Findings findings;
        const Start start = ReadStart(GivenCommand(options, m_agent, Path("work")), findings);
        EXPECT_THAT(Told(findings), IsEmpty());
        subject(start, findings);
        return Told(findings);
    }

    const ScratchFolder m_folder;
    std::string m_agent;
};

TEST_F(CheckStartTest, ModulesAreFoundAndCompiledAndNeverRun) {
    m_folder.Write("sly.lua", "#!/usr/bin/lua\nio.open('" + Path("ran") + "', 'w'):close()");
    m_folder.Write("native.so", "no library, which nobody looks into");
    m_folder.Write("a b's/init.lua", "return 1,\n\n]]");
    m_folder.Write("compiled.lua", "\033Lua");
    for (const char* found : {"sly", "native"}) {
        EXPECT_THAT(Check(CheckApplication, {"-a", found}), IsEmpty());
    }
    EXPECT_FALSE(fs::exists(Path("ran")));
    EXPECT_THAT(Check(CheckApplication, {"-a", "a b's", "-l", Path("?/init.lua")}),
                ElementsAre("error init.lua:3 unexpected symbol near ']'"));
    EXPECT_THAT(Check(CheckApplication, {"-a", "compiled"}),
                ElementsAre(HasSubstr("error compiled.lua:0 ")));
    EXPECT_THAT(Check(CheckApplication, {"-a", "none"}),
                ElementsAre(HasSubstr("no file '" + Path("none.so") + "'")));
}

TEST_F(CheckStartTest, OfAModuleInTwoArchivesTheOneThatCountsIsCompiled) {
    m_folder.Write("app.lua", "");
    const auto archive = [](const std::string& text) {
        return BuildZip({{.name = "m/init.lua", .content = text},
                         {.name = "n.lua", .content = "\xef\xbb\xbf#!\nreturn 1"},
                         {.name = "not.a.module.lua", .content = "("},
                         {.name = "note.txt", .content = "("}});
    };
    m_folder.Write("bin/ext/1.zke", archive("return 1"));
    m_folder.Write("bin/ext/2.zke", archive("return ("));
    EXPECT_THAT(Check(CheckApplication, {"-a", "app", "-e", "ext"}), IsEmpty());
    fs::rename(Path("bin/ext/1.zke"), Path("bin/ext/3.zke"));
    EXPECT_THAT(Check(CheckApplication, {"-a", "app", "-e", "ext"}),
                ElementsAre(HasSubstr("error init.lua:1 unexpected symbol near <eof>")));
    const std::string twice = BuildZip({{.name = "x", .content = "1"}, {.name = "y"}});
    m_folder.Write("bin/ext/2.zke", Patch(twice, "y", "x"));
    EXPECT_THAT(Check(CheckApplication, {"-a", "app", "-z", m_folder.Path() / "bin/ext/2.zke"}),
                ElementsAre("error x:0 is there twice"));
    EXPECT_THAT(Check(CheckApplication, {"-a", "app", "-z", m_folder.Path() / "bin/none.zke"}),
                ElementsAre(HasSubstr("warning :0 ")));
}

TEST_F(CheckStartTest, IniFilesOfAnyEncodingAreToldOfByTheLinesThatAnEditorShows) {
    const auto utf16 = [](const std::string& text) {
        std::string wide = "\xff\xfe";
        for (const char character : text) {
            wide += {character, '\0'};
        }
        return wide;
    };
    const std::string lines = "\r\n[ a ]\r\nDumpLevel=1\r\n[]\r\nsqlite.Config.cache_size=1\r\n";
    for (const std::string& text : {lines, "\xef\xbb\xbf" + lines, utf16(lines)}) {
        m_folder.Write("work/zelk_agent.ini", text);
        EXPECT_THAT(Check(CheckIniFiles),
                    ElementsAre(HasSubstr("warning zelk_agent.ini:3 'DumpLevel' stands in the "
                                          "group ' a '"),
                                HasSubstr("warning zelk_agent.ini:5 the agent has no key")));
    }
    m_folder.Write("work/zelk_agent.ini", "StallLimit=-1\nother.Trace=x\nprobe/x=1\n");
    m_folder.Write("global.ini", utf16("a=\xd8") + "b");
    EXPECT_THAT(Check(CheckIniFiles, {"-d", "sqlite.config.synchronous=0"}),
                ElementsAre(HasSubstr("error zelk_agent.ini:1 StallLimit is '-1', which is not a "
                                      "whole number from 0 on"),
                            HasSubstr("warning zelk_agent.ini:3 the agent has no key 'probe/x'"),
                            HasSubstr("error global.ini:0 cannot be read as UTF-8 or UTF-16"),
                            HasSubstr("error :0 sqlite.config.synchronous is '0'")));
    fs::remove(Path("global.ini"));
    fs::create_directory(Path("global.ini"));
    EXPECT_THAT(Check(CheckIniFiles), Contains(HasSubstr("error global.ini:0 ")));
}

TEST_F(CheckStartTest, ARelayGoesWhileASettingIsStoredAndAnArchiveThatHasItsNameDoesNot) {
    const std::string package = BuildZip({{.name = "file", .content = "1"}});
    m_folder.Write("bin/Feature-RELAY-1.zkp", package);
    m_folder.Write("bin/Feature-X-1.zkp", package);
    EXPECT_THAT(Check(CheckPackages, {"-i"}), IsEmpty());
    ZelkaCore::AgentDatabase database(Path("work/plugins/zelka_core/zelk_agent.db"),
                                      ZelkaCore::SqliteTuning());
    ASSERT_TRUE(database.SettingStore("zelka_version_new", ""));
    EXPECT_THAT(Check(CheckPackages, {"-i"}),
                ElementsAre("error Feature-RELAY-1.zkp:0 is thrown away by a start: the setting "
                            "zelka_version_new is stored"));
    EXPECT_THAT(Check(CheckPackages), IsEmpty()) << "of a start that leaves packages alone";
}

// Agents come, write, copy their log back and go while it is looked at.
TEST_F(CheckStartTest, ADatabaseThatIsWrittenMeanwhileIsNotTakenForADamagedOne) {
    constexpr int kLooks = 200;
    const ChildProcess agents([this] {
        const std::string value(20'000, 'v');
        for (int number = 0;; ++number) {
            ZelkaCore::AgentDatabase database(Path("work/plugins/zelka_core/zelk_agent.db"),
                                              {.walAutocheckpoint = 1});
            if (!database.SettingStore(std::to_string(number % 50), value) ||
                (number == 0 && write(STDOUT_FILENO, "w\n", 2) != 2)) {
                return false;
            }
        }
    });
    ASSERT_EQ(agents.ReadLine(), "w");
    for (int look = 0; look < kLooks; ++look) {
        ASSERT_THAT(Check(CheckDatabase), IsEmpty()) << look;
    }
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
