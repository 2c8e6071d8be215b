#include <gtest/gtest.h>
#include <wx/filename.h>

#include "apps/zelka/plugins/plugin_type.h"
#include "apps/zelka/plugins/relay_conflict.h"

TEST(PluginType, StandsBetweenTheFirstTwoDashesOfTheName) {
    for (const auto& [name, type] : std::initializer_list<std::pair<const char*, const char*>>{
             {"Feature-RELAY-Windows-1.0.0.zkp", "RELAY"},
             {"Feature-RELAY.zkp", "RELAY"},
             {"relay.zkp", "relay"},
             {"re.lay.zkp", "re.lay"},
             {"Feature-.zkp", ""},
             {"--x.zkp", ""},
             {"-Type.zkp", "Type"}}) {
        EXPECT_EQ(GetPluginType(wxFileName(wxString("/opt/a-b/") + name)), type) << name;
    }
}

TEST(RelayConflict, ConcernsNoArchiveWhereThereIsNoPackageOfARelay) {
    EXPECT_FALSE(IsArchiveOfOtherKind("relay", {}));
    EXPECT_FALSE(IsArchiveOfOtherKind("erelay", {}));
}
