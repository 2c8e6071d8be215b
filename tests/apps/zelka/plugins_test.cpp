#include <gtest/gtest.h>
#include <wx/filename.h>

#include "apps/zelka/plugins/plugin_type.h"
#include "apps/zelka/plugins/relay_conflict.h"

namespace {

TEST(PluginType, StandsBetweenTheFirstTwoDashesOfTheName) {
    for (const auto& [name, type] : std::initializer_list<std::pair<const char*, const char*>>{
             {"Feature-RELAY-Windows-1.0.0.zkp", "RELAY"},
             {"Feature-RELAY.zkp", "RELAY"},
             {"Feature-RELAY-1.0", "RELAY"},
             {"relay.zkp", "relay"},
             {"re.lay.zkp", "re.lay"},
             {"Feature-.zkp", ""},
             {"--x.zkp", ""},
             {"-Type.zkp", "Type"}}) {
        EXPECT_EQ(GetPluginType(wxFileName(wxString("/opt/a-b/") + name)), type) << name;
    }
}

TEST(RelayConflict, IsBetweenTheLastPackagesOfEachKindWhateverTheCaseOfTheirTypes) {
    wxArrayString packages;
    for (const char* name : {"a-Relay-1", "b-RELAY-2", "c-EDGERELAY-1", "d-OTHER", "relays"}) {
        packages.Add(wxString("/x/") + name + ".zkp");
    }
    const RelayPackages both = FindRelayPackages(packages);
    EXPECT_EQ(both.relay, "/x/b-RELAY-2.zkp");
    EXPECT_EQ(both.edgeRelay, "/x/c-EDGERELAY-1.zkp");
    EXPECT_TRUE(AreInConflict(both));
    packages.RemoveAt(2);
    const RelayPackages one = FindRelayPackages(packages);
    EXPECT_EQ(one.edgeRelay, "");
    EXPECT_FALSE(AreInConflict(one));
    EXPECT_FALSE(AreInConflict({}));
}

TEST(RelayConflict, AnArchiveIsOfTheOtherKindOnlyBesideExactlyOnePackage) {
    const RelayPackages relay{.relay = "r", .edgeRelay = ""};
    const RelayPackages edge{.relay = "", .edgeRelay = "e"};
    EXPECT_TRUE(IsArchiveOfOtherKind("erelay", relay));
    EXPECT_FALSE(IsArchiveOfOtherKind("relay", relay));
    EXPECT_TRUE(IsArchiveOfOtherKind("relay.2", edge));
    EXPECT_FALSE(IsArchiveOfOtherKind("erelay", edge));
    EXPECT_FALSE(IsArchiveOfOtherKind("Relay", edge));
    EXPECT_FALSE(IsArchiveOfOtherKind("my-relay", edge));
    for (const char* stem : {"relay", "erelay"}) {
        EXPECT_FALSE(IsArchiveOfOtherKind(stem, {.relay = "r", .edgeRelay = "e"}));
        EXPECT_FALSE(IsArchiveOfOtherKind(stem, {}));
    }
}

}  // namespace
