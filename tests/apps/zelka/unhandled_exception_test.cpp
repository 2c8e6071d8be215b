#include "apps/zelka/host/unhandled_exception.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <string>

namespace {

template <typename T>
std::string Describe(T exception) {
    try {
        throw exception;  // NOLINT(cert-*,misc-throw-*): of any type, as it may come
    } catch (...) {
        return DescribeCurrentException().utf8_string();
    }
}

TEST(DescribeCurrentException, NamesTheTypeAndTextOfAStandardException) {
    EXPECT_EQ(Describe(std::runtime_error("boom")),
              "std::exception of type \"St13runtime_error\", what() = \"boom\"");
    EXPECT_EQ(Describe(std::bad_alloc()),
              "std::exception of type \"St9bad_alloc\", what() = \"std::bad_alloc\"");
    EXPECT_EQ(Describe(std::out_of_range("100% \xC3\xA4")),
              "std::exception of type \"St12out_of_range\", what() = \"100% \xC3\xA4\"");
}

TEST(DescribeCurrentException, ShowsTextsAndNumbers) {
    std::string text = "boom %s";
    std::wstring wide = L"b\u00F6m";
    EXPECT_EQ(Describe(text.data()), "char * exception 'boom %s'");
    EXPECT_EQ(Describe(wide.data()), "wchar_t * exception 'b\xC3\xB6m'");
    EXPECT_EQ(Describe(-7), "int exception -7");
    EXPECT_EQ(Describe(4294967295U), "unsigned int exception 4294967295");
    EXPECT_EQ(Describe(-7L), "long exception -7");
    EXPECT_EQ(Describe(18446744073709551615UL), "unsigned long exception 18446744073709551615");
    EXPECT_EQ(Describe(-9223372036854775807LL), "long long exception -9223372036854775807");
    EXPECT_EQ(Describe(7ULL), "unsigned long long exception 7");
}

TEST(DescribeCurrentException, KnowsNothingOfOtherTypesAndOfNoText) {
    double number = 0;
    EXPECT_EQ(Describe(&number), "<unknown exception>");
    EXPECT_EQ(Describe(std::string("boom")), "<unknown exception>");
    EXPECT_EQ(Describe(static_cast<char*>(nullptr)), "char * exception '(null)'");
}

}  // namespace
