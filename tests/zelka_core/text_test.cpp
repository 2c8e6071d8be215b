#include "zelka_core/text.h"

#include <gtest/gtest.h>

namespace ZelkaCore {
namespace {

TEST(Text, KnowsWellFormedUtf8) {
    for (const char* good :
         {"", "a", "\xc2\x80", "\xe0\xa0\x80", "\xed\x9f\xbf", "\xf4\x8f\xbf\xbf"}) {
        EXPECT_TRUE(IsValidUtf8(good)) << good;
    }
    for (const char* bad :
         {"\x80", "\xc1\xbf", "\xc3", "\xe0\x9f\xbf", "\xed\xa0\x80", "\xe2\x82",
          "\xf0\x8f\xbf\xbf", "\xf4\x90\x80\x80", "\xf8\x88\x80\x80\x80", "\xc3\x28"}) {
        EXPECT_FALSE(IsValidUtf8(bad)) << bad;
    }
}

TEST(Text, IsCutBehindAWholeCharacter) {
    const std::string text = "a\u00e4\u20ac\U0001f600";
    const std::size_t whole[] = {0, 1, 1, 3, 3, 3, 6, 6, 6, 6, 10};
    for (std::size_t size = 0; size <= text.size(); ++size) {
        EXPECT_EQ(WholeCharacters(text.substr(0, size)).size(), whole[size]) << size;
    }
    EXPECT_EQ(WholeCharacters("\x80\x80\x80\x80"), "\x80\x80\x80\x80");
    EXPECT_EQ(WholeCharacters("a\xff\x80"), "a\xff\x80");
}

}  // namespace
}  // namespace ZelkaCore
