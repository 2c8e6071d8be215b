#include "platform/regkey.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/captured_log.h"
#include "tests/support/scratch_folder.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

class Registry : public testing::Test {
  protected:
    Registry() { UseRegistryFile(m_path.string()); }

    void Write(const std::string& content) const { (void)m_folder.Write("registry.ini", content); }
    [[nodiscard]] std::string Content() const { return ReadFile(m_path); }

    const ScratchFolder m_folder;
    const fs::path m_path = m_folder.Path() / "registry.ini";
    const CapturedLog m_log;
};

std::string Text(const wxRegKey& key, const wxString& name) {
    wxString data = "untouched";
    EXPECT_EQ(key.QueryValue(name, data), key.HasValue(name));
    return data.utf8_string();
}

long Number(const wxRegKey& key, const wxString& name) {
    long data = -77;
    (void)key.QueryValue(name, &data);
    return data;
}

TEST_F(Registry, AKeyIsFoundByEitherNameOfItsRootAndWithoutRegardToCase) {
    Write(
        "\xEF\xBB\xBF[HKEY_LOCAL_MACHINE\\Software\\Orvane\\Zelk Agent]\r\n"
        "Work Dir = C:\\a=\"b\" \r\n"
        "\xC3\x84=umlaut\r\n"
        "[hklm\\SOFTWARE\\\\orvane\\zelk agent\\]\r\n"
        "@=default");
    wxRegKey key(R"(HKLM\software\Orvane\Zelk Agent)");
    EXPECT_TRUE(key.Open(wxRegKey::Read));
    EXPECT_EQ(Text(key, "work DIR"), "C:\\a=\"b\"");
    EXPECT_EQ(Text(key, wxString::FromUTF8("\xC3\xA4")), "umlaut");
    EXPECT_EQ(Text(key, ""), "default");
    EXPECT_EQ(Text(key, "Work"), "untouched");
}

TEST_F(Registry, AKeyExistsWhenOneBelowItDoesAndRootsAlwaysExist) {
    Write("[HKLM\\Software\\Orvane\\Agent]\n");
    wxRegKey key(wxRegKey::HKLM, "Software");
    EXPECT_TRUE(key.HasSubKey("ORVANE"));
    EXPECT_FALSE(key.HasSubKey("Orv"));
    for (const char* known : {R"(HKLM\Software)", R"(HKLM\Software\Orvane\Agent)", "HKCU"}) {
        key.SetName(wxString(known));
        EXPECT_TRUE(key.Open(wxRegKey::Read)) << known;
    }
    for (const char* stranger :
         {"", "HKLM2\\Software", "Software", "HKLM\\Soft", "HKLM/Software"}) {
        key.SetName(wxString(stranger));
        EXPECT_FALSE(key.IsOpened());
        EXPECT_FALSE(key.Open(wxRegKey::Read)) << stranger;
        EXPECT_FALSE(key.HasSubKey("Orvane") || key.HasValue("")) << stranger;
    }
}

TEST_F(Registry, NumbersAreDecimalOrHexadecimalAndWhole) {
    Write("[HKLM\\a]\n1=42\n2=-5\n3=0x1F\n4=9223372036854775808\n5=1 2\n6=\n7=0x\n8=0x-1\n9=010\n");
    const wxRegKey key("HKLM\\a");
    std::vector<long> numbers;
    for (const char* name : {"1", "2", "3", "4", "5", "6", "7", "8", "9", "none"}) {
        numbers.push_back(Number(key, name));
    }
    EXPECT_THAT(numbers, ElementsAre(42, -5, 31, -77, -77, -77, -77, -77, 10, -77));
}

TEST_F(Registry, LinesThatMakeNoSenseAreToldOnceWithTheirPlaceAndSkipped) {
    using std::string_literals::operator""s;
    Write(
        "before=any key\n[HKLM\\a]\nx=1\nnonsense\ny=\xFF\nn=\0\n[HKLM\\b\nx=2\n[other\\c]\n"
        "[HKLM\\a]\nx=3"s);
    const wxRegKey key("HKLM\\a");
    EXPECT_EQ(Number(key, "x"), 3);
    EXPECT_FALSE(key.HasValue("y") || key.HasValue("n") || wxRegKey("HKLM\\b").Exists());
    for (const char* line : {":1:", ":4:", ":5:", ":6:", ":7:", ":8:", ":9:"}) {
        EXPECT_THAT(m_log.Text(), HasSubstr(m_path.string() + line));
    }
    EXPECT_EQ(m_log.Lines().size(), 7U);
    std::vector<std::size_t> lines;
    for (const RegistryFault& fault : RegistryFaults()) {
        lines.push_back(fault.line);
    }
    EXPECT_THAT(lines, ElementsAre(1, 4, 5, 6, 7, 8, 9)) << "whoever asks is told again";
    EXPECT_EQ(key.LineOf("X"), 11U);
}

TEST_F(Registry, AMissingFileCountsAsEmptyAndSoDoesWhatCannotBeReadButIsNotReplaced) {
    EXPECT_TRUE(wxRegKey("HKLM\\a").DeleteKey("b"));
    EXPECT_FALSE(fs::exists(m_path));
    EXPECT_EQ(m_log.Text(), "");

    const std::string large = "[HKLM\\a\\b]\n" + std::string(1U << 20U, ';');
    Write(large);
    EXPECT_FALSE(wxRegKey("HKLM\\a").Open(wxRegKey::Read));
    EXPECT_FALSE(wxRegKey("HKLM\\a").DeleteKey("b"));
    EXPECT_EQ(Content(), large);
    EXPECT_THAT(m_log.Lines(), ElementsAre(HasSubstr("larger than 1 MiB"), HasSubstr("read")));
    EXPECT_THAT(RegistryFaults(), ElementsAre(testing::Field(&RegistryFault::line, 0U)));

    ASSERT_TRUE(fs::remove(m_path));
    ASSERT_EQ(mkfifo(m_path.c_str(), 0600), 0);
    EXPECT_FALSE(wxRegKey("HKLM\\a").Open(wxRegKey::Read));
}

TEST_F(Registry, DeletingAKeyTakesWhatIsBelowItAndLeavesEveryOtherLineAlone) {
    const std::string others = "# head\r\n[HKLM\\Software\\Flags]\r\nX = 1\n\n";
    Write(others +
          "[HKLM\\Software\\Flag]\nx=1\n; why\nnonsense, too\n\n"
          "[HKEY_LOCAL_MACHINE\\SOFTWARE\\FLAG\\Deep\\Down]\nx=1\n"
          "[HKLM\\Software]\nlast=1");
    fs::permissions(m_path, fs::perms{0640});
    const fs::path link = m_folder.Path() / "link.ini";
    fs::create_symlink("registry.ini", link);
    UseRegistryFile(link.string());

    EXPECT_TRUE(wxRegKey(wxRegKey::HKLM, "software").DeleteKey("flag"));
    EXPECT_EQ(Content(), others + "; why\nnonsense, too\n[HKLM\\Software]\nlast=1");
    EXPECT_EQ(fs::status(m_path).permissions(), fs::perms{0640});
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_EQ(std::distance(fs::directory_iterator(m_folder.Path()), {}), 2);
}

TEST_F(Registry, RootsAndTheKeysDirectlyBelowThemAreNeverDeleted) {
    const std::string content = "[HKLM\\Software\\a]\nx=1\n";
    Write(content);
    EXPECT_FALSE(wxRegKey("HKLM").DeleteSelf());
    EXPECT_FALSE(wxRegKey("HKLM\\Software").DeleteSelf());
    EXPECT_FALSE(wxRegKey("HKLM").DeleteKey("Software"));
    EXPECT_FALSE(wxRegKey("HKLM\\Software\\a").DeleteKey(""));
    EXPECT_EQ(Content(), content);
    EXPECT_EQ(m_log.Lines().size(), 4U);
}

}  // namespace
