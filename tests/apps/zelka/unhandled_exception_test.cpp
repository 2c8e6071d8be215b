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

TEST(DescribeCurrentException, ShowsTextsAndNumbersAndKnowsNothingOfOtherTypes) {
    std::string text = "boom %s";
    std::wstring wide = L"b\u00F6m";
    double number = 0;
    for (const auto& [told, expected] : std::initializer_list<std::pair<std::string, const char*>>{
             {Describe(std::bad_alloc()),
              R"(std::exception of type "St9bad_alloc", what() = "std::bad_alloc")"},
             {Describe(std::out_of_range("100% \xC3\xA4")),
              "std::exception of type \"St12out_of_range\", what() = \"100% \xC3\xA4\""},
             {Describe(text.data()), "char * exception 'boom %s'"},
             {Describe(static_cast<char*>(nullptr)), "char * exception '(null)'"},
             {Describe(wide.data()), "wchar_t * exception 'b\xC3\xB6m'"},
             {Describe(4294967295U), "unsigned int exception 4294967295"},
             {Describe(-7L), "long exception -7"},
             {Describe(18446744073709551615UL), "unsigned long exception 18446744073709551615"},
             {Describe(-9223372036854775807LL), "long long exception -9223372036854775807"},
             {Describe(7ULL), "unsigned long long exception 7"},
             {Describe(&number), "<unknown exception>"}}) {
        EXPECT_EQ(told, expected);
    }
}

}  // namespace
