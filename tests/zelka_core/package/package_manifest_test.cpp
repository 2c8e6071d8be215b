#include "zelka_core/package/package_manifest.h"

#include <gmock/gmock.h>

#include "zelka_core/package/version_order.h"

namespace ZelkaCore {
namespace {

TEST(PackageVersion, TheOrderIsDebians) {
    const std::vector<std::string> ascending{
        "0~~",   "0~",       "0",    "0.9",   "1.0~beta1", "1.0~beta1+x", "1.0~rc1", "1.0",
        "1.0-1", "1.0-1+b1", "1.0a", "1.0+x", "1.0.1",     "1.2",         "1.10",    "1:0.1"};
    for (std::size_t i = 0; i < ascending.size(); ++i) {
        EXPECT_TRUE(IsVersion(ascending[i])) << ascending[i];
        for (std::size_t j = 0; j < ascending.size(); ++j) {
            EXPECT_EQ(CompareVersions(ascending[i], ascending[j]), i <=> j)
                << ascending[i] << " " << ascending[j];
        }
    }
    EXPECT_EQ(CompareVersions("0:1.0-0", "1.00"), std::weak_ordering::equivalent);
    EXPECT_EQ(CompareVersions("1.99999999999999999999", "1.100000000000000000000"),
              std::weak_ordering::less);
    for (const char* text : {"", "a1", "-1", "1-", "1:", ":1", "1 0", "1_0", "1/0", "x:1"}) {
        EXPECT_FALSE(IsVersion(text)) << text;
    }
}

TEST(PackageManifest, SaysWhichLineMakesNoSenseAndWhy) {
    const std::string good = "[package]\nname=a\nversion=1\n";
    const std::vector<std::pair<std::string, std::string>> faults{
        {"", "the group [package] has no name"},
        {"[package]\nname=a\n", "the group [package] has no version"},
        {"name=a\nversion=1\n", "the group [package] has no name"},
        {"[package]\nname=a b\n", "line 2: 'a b' is no name of a package"},
        {"[package]\nname=../a\n", "line 2: '../a' is no name of a package"},
        {"[package]\nname=a\x1b\n", "line 2: 'a\\u{1b}' is no name of a package"},
        {"[package]\n\nversion=one\n", "line 3: 'one' is no version"},
        {good + "version=2\n", "line 4: version is there twice"},
        {good + "[package]\n", "line 4: the group [package] is there twice"},
        {good + "require=b\n", "line 4: the key 'require' is unknown"},
        {good + "nonsense\n", "line 4: neither a [group] nor key=value"},
        {good + "requires=b>1\n", "line 4: requires: '>1' begins with none of << <= = >= >>"},
        {good + "requires=b>=x\n", "line 4: requires: 'x' is no version"},
        {good + "requires=b,,c\n", "line 4: requires: '' is no name of a package"},
        {"[package]\nname=\xff\n", "is not UTF-8"}};
    for (const auto& [text, expected] : faults) {
        PackageManifest manifest{.name = "untouched", .version = {}, .requirements = {}};
        std::string fault;
        EXPECT_FALSE(ParseManifest(text, manifest, fault)) << text;
        EXPECT_EQ(fault, expected);
        EXPECT_EQ(manifest.name, "untouched");
    }
}

TEST(PackageManifest, TellsNameVersionAndWhatThereHasToBe) {
    PackageManifest manifest;
    std::string fault;
    ASSERT_TRUE(
        ParseManifest("; a comment\r\n[other]\nanything=goes\n[package]\r\n name = a-b \r\n"
                      "version=1.2\nrequires = zelk_agent >= 1.0, b, c<<2, c>>1\n"
                      "x-anybody = says\n",
                      manifest, fault))
        << fault;
    EXPECT_EQ(manifest.name + " " + manifest.version, "a-b 1.2");
    EXPECT_EQ(RequirementsText(manifest.requirements), "zelk_agent>=1.0, b, c<<2, c>>1");
    const auto& [agent, any, less, more] =
        std::tie(manifest.requirements.at(0), manifest.requirements.at(1),
                 manifest.requirements.at(2), manifest.requirements.at(3));
    EXPECT_TRUE(agent.IsMetBy("1.0") && agent.IsMetBy("1.0.1") && !agent.IsMetBy("1.0~rc1"));
    EXPECT_TRUE(any.IsMetBy("0"));
    EXPECT_TRUE(less.IsMetBy("1.9") && !less.IsMetBy("2"));
    EXPECT_TRUE(more.IsMetBy("1.1") && !more.IsMetBy("1"));
}

}  // namespace
}  // namespace ZelkaCore
