#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <functional>
#include <string>

#include "platform/bounded_text.h"
#include "tests/platform/crash_case.h"
#include "zelka_core/lua/lua_crash_text.h"
#include "zelka_core/text.h"

namespace {

using namespace faults;

// What a description may do beside what it is asked for. Each has told something before.
std::size_t TellAndFault(char* buffer, std::size_t) {
    std::strcpy(buffer, "half of it");  // NOLINT(cert-*,clang-analyzer-*): room is plenty
    TouchLockedPage();
    return 1;
}

std::size_t TellAndOverflow(char* buffer, std::size_t) {
    std::strcpy(buffer, "half of it");  // NOLINT(cert-*,clang-analyzer-*): room is plenty
    return static_cast<std::size_t>(RecurseForEver(0));
}

std::size_t TellTooMuch(char* buffer, std::size_t size) {
    BoundedText text(buffer, size);
    while (text.Length() + 3 < size) {
        (void)text.Add("x\u20ac");
    }
    return text.Add("\u20ac\u20ac").Length();
}

TEST_F(CrashDump, HoldsWhatTheProgramSaysOfItselfAsFarAsThatCanBeRead) {
    constexpr const char* kHalf = "half of it\n(what follows cannot be read)";
    const std::function<void()> noHelper = [] { Refuse(SYS_clone, EAGAIN); };
    const struct {
        CrashDescription describe;
        std::function<void()> before;
        std::string told;
    } cases[] = {
        {TellAndFault, [] {}, kHalf},
        {TellAndFault, noHelper, kHalf},
        {kSanitizer ? TellAndFault : TellAndOverflow, [] {}, kHalf},
        {ZelkaCore::DescribeLua, [] {}, ""},  // there is no Lua state
    };
    for (const auto& item : cases) {
        EXPECT_EQ(Crash([&] {
                      Describe(item.describe);
                      item.before();
                  }),
                  SIGSEGV);
        EXPECT_EQ(Report().lua, item.told);
        fs::remove(File());
    }
    EXPECT_EQ(Crash([this] { Describe(TellTooMuch); }), SIGSEGV);
    EXPECT_EQ(Report().lua.size(), 8192);
    EXPECT_TRUE(ZelkaCore::IsValidUtf8(Report().lua) && Report().lua.ends_with("x\u20ac"));
}

}  // namespace
