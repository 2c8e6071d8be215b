#include "platform/events.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <thread>

namespace {

constexpr DWORD kGenerous = 60'000;

DWORD Wait(HANDLE event, DWORD timeoutMs) {
    return WaitForMultipleObjects(1, &event, false, timeoutMs);
}

TEST(Events, ManualResetStaysSignalledAndAutomaticResetWakesOnce) {
    const ScopedHandle manual(CreateEventW(nullptr, true, false, nullptr));
    const ScopedHandle automatic(CreateEventW(nullptr, false, false, nullptr));
    ASSERT_TRUE(SetEvent(manual.Get()));
    ASSERT_TRUE(SetEvent(automatic.Get()));
    ASSERT_TRUE(SetEvent(automatic.Get()));

    EXPECT_EQ(Wait(manual.Get(), 0), WAIT_OBJECT_0);
    EXPECT_EQ(Wait(manual.Get(), 0), WAIT_OBJECT_0);
    EXPECT_EQ(Wait(automatic.Get(), 0), WAIT_OBJECT_0);
    EXPECT_EQ(Wait(automatic.Get(), 0), WAIT_TIMEOUT);

    ASSERT_TRUE(ResetEvent(manual.Get()));
    EXPECT_EQ(Wait(manual.Get(), 0), WAIT_TIMEOUT);
}

TEST(Events, TheLowestSignalledHandleWinsAndTheOthersKeepTheirSignal) {
    const ScopedHandle first(CreateEventW(nullptr, false, true, nullptr));
    const ScopedHandle second(CreateEventW(nullptr, false, true, nullptr));
    const std::array handles{first.Get(), second.Get()};
    EXPECT_EQ(WaitForMultipleObjects(2, handles.data(), false, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForMultipleObjects(2, handles.data(), false, 0), WAIT_OBJECT_0 + 1);
    EXPECT_EQ(WaitForMultipleObjects(2, handles.data(), false, 0), WAIT_TIMEOUT);
}

TEST(Events, AWaitLastsUntilAnotherThreadSignals) {
    const ScopedHandle event(CreateEventW(nullptr, false, false, nullptr));
    std::thread signaller([&] { EXPECT_TRUE(SetEvent(event.Get())); });
    EXPECT_EQ(Wait(event.Get(), kGenerous), WAIT_OBJECT_0);
    signaller.join();
}

TEST(Events, AWaitNeverEndsBeforeItsTime) {
    const ScopedHandle event(CreateEventW(nullptr, false, false, nullptr));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Wait(event.Get(), 20), WAIT_TIMEOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(20));
}

TEST(Events, AHandleIsRefusedOnceClosedAndNeverComesBack) {
    const HANDLE old = CreateEventW(nullptr, true, false, nullptr);
    ASSERT_TRUE(CloseHandle(old));
    const ScopedHandle next(CreateEventW(nullptr, true, false, nullptr));
    EXPECT_NE(next.Get(), old);

    for (const HANDLE handle : {old, HANDLE{0}, INVALID_HANDLE_VALUE, HANDLE{1}, HANDLE{1} << 52}) {
        SetLastError(0);
        EXPECT_FALSE(SetEvent(handle));
        EXPECT_EQ(GetLastError(), DWORD{EBADF});
        EXPECT_EQ(Wait(handle, 0), WAIT_FAILED);
        EXPECT_FALSE(CloseHandle(handle));
    }
}

TEST(Events, WhatIsNotOfferedIsRefused) {
    const ScopedHandle event(CreateEventW(nullptr, true, true, nullptr));
    const HANDLE handle = event.Get();
    EXPECT_EQ(WaitForMultipleObjects(0, &handle, false, 0), WAIT_FAILED);
    EXPECT_EQ(WaitForMultipleObjects(1, &handle, true, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), DWORD{EINVAL});
    EXPECT_EQ(CreateEventW(nullptr, true, false, L"name"), 0);
}

}  // namespace
