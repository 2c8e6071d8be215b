#include "platform/events.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <thread>
#include <vector>

namespace {

constexpr DWORD kGenerous = 60'000;

DWORD Wait(const std::vector<HANDLE>& events, DWORD timeoutMs) {
    return WaitForMultipleObjects(static_cast<DWORD>(events.size()), events.data(), false,
                                  timeoutMs);
}

TEST(Events, TheFirstSignalledHandleWinsAndOneWithAutomaticResetWakesOnce) {
    const ScopedHandle automatic(CreateEventW(nullptr, false, true, nullptr));
    const ScopedHandle manual(CreateEventW(nullptr, true, false, nullptr));
    const std::vector<HANDLE> both{automatic.Get(), manual.Get()};
    ASSERT_TRUE(SetEvent(automatic.Get()));
    ASSERT_TRUE(SetEvent(manual.Get()));

    EXPECT_EQ(Wait(both, 0), WAIT_OBJECT_0);
    EXPECT_EQ(Wait(both, 0), WAIT_OBJECT_0 + 1);
    EXPECT_EQ(Wait(both, 0), WAIT_OBJECT_0 + 1);
    ASSERT_TRUE(ResetEvent(manual.Get()));
    EXPECT_EQ(Wait(both, 0), WAIT_TIMEOUT);
}

TEST(Events, AWaitLastsForItsTimeOrUntilAnotherThreadSignals) {
    const ScopedHandle event(CreateEventW(nullptr, false, false, nullptr));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Wait({event.Get()}, 20), WAIT_TIMEOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(20));
    const std::jthread signaller([&] { EXPECT_TRUE(SetEvent(event.Get())); });
    EXPECT_EQ(Wait({event.Get()}, kGenerous), WAIT_OBJECT_0);
}

TEST(Events, AHandleIsRefusedOnceClosedAndSoIsWhatIsNotOffered) {
    const HANDLE old = CreateEventW(nullptr, true, false, nullptr);
    ASSERT_TRUE(CloseHandle(old));
    const ScopedHandle next(CreateEventW(nullptr, true, true, nullptr));
    const HANDLE open = next.Get();
    EXPECT_NE(open, old);
    for (const HANDLE handle : {old, HANDLE{0}, INVALID_HANDLE_VALUE, HANDLE{1}, HANDLE{1} << 52}) {
        SetLastError(0);
        EXPECT_FALSE(SetEvent(handle));
        EXPECT_EQ(GetLastError(), DWORD{EBADF});
        EXPECT_EQ(Wait({handle}, 0), WAIT_FAILED);
        EXPECT_FALSE(CloseHandle(handle));
    }
    EXPECT_EQ(Wait({}, 0), WAIT_FAILED);
    EXPECT_EQ(WaitForMultipleObjects(1, &open, true, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), DWORD{EINVAL});
    EXPECT_EQ(CreateEventW(nullptr, true, false, L"name"), 0);
}

}  // namespace
