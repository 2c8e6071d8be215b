#include "zelka_core/text.h"

#include <gtest/gtest.h>

namespace ZelkaCore {
namespace {

TEST(Text, SurvivesTheRoundTripWithCharactersOfEveryLength) {
    const std::string text = "a\u00e4\u20ac\U0001F600";
    EXPECT_EQ(ToUtf8(FromUtf8(text)), text);
    EXPECT_EQ(FromUtf8(text).length(), 4U);
}

TEST(Text, KeepsAnEmbeddedNull) {
    const std::string text("a\0b", 3);
    EXPECT_EQ(ToUtf8(FromUtf8(text)), text);
}

TEST(Text, TakesBytesThatAreNotUtf8AsLatin1) {
    EXPECT_EQ(FromUtf8("\xe4"), wxString(wchar_t(0xe4)));
}

}  // namespace
}  // namespace ZelkaCore
