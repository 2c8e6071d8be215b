#include "platform/events.h"

#include <gtest/gtest.h>

#include <system_error>
#include <vector>

#include "tests/support/new_event.h"

namespace {

const std::error_code kNotOpen = std::make_error_code(std::errc::bad_file_descriptor);
const std::error_code kBadCount = std::make_error_code(std::errc::invalid_argument);

DWORD Ask(const std::vector<HANDLE>& events) {
    DWORD answer = 0;
    EXPECT_FALSE(WaitForMultipleObjects(events, 0, answer));
    return answer;
}

TEST(Events, TheFirstSignalledHandleWinsAndOneWithAutomaticResetWakesOnce) {
    const ScopedHandle automatic(NewEvent(false, true));
    const ScopedHandle manual(NewEvent(true, false));
    const std::vector<HANDLE> both{automatic.Get(), manual.Get()};
    ASSERT_FALSE(SetEvent(automatic.Get()));
    ASSERT_FALSE(SetEvent(manual.Get()));

    EXPECT_EQ(Ask(both), WAIT_OBJECT_0);
    EXPECT_EQ(Ask(both), WAIT_OBJECT_0 + 1);
    EXPECT_EQ(Ask(std::vector(MAXIMUM_WAIT_OBJECTS, manual.Get())), WAIT_OBJECT_0);
    ASSERT_FALSE(ResetEvent(manual.Get()));
    EXPECT_EQ(Ask(both), WAIT_TIMEOUT);
}

TEST(Events, AHandleIsRefusedOnceClosedAndSoIsABadNumberOfThem) {
    const HANDLE old = NewEvent(true, false);
    ASSERT_FALSE(CloseHandle(old));
    const ScopedHandle next(NewEvent(true, true));
    EXPECT_NE(next.Get(), old);
    DWORD answer = 7;
    for (const HANDLE handle : {old, HANDLE{0}, INVALID_HANDLE_VALUE, HANDLE{1}, HANDLE{1} << 52}) {
        EXPECT_EQ(SetEvent(handle), kNotOpen);
        EXPECT_EQ(WaitForMultipleObjects(std::span(&handle, 1), 0, answer), kNotOpen);
        EXPECT_EQ(CloseHandle(handle), kNotOpen);
    }
    const std::vector<HANDLE> tooMany(MAXIMUM_WAIT_OBJECTS + 1, next.Get());
    EXPECT_EQ(WaitForMultipleObjects({}, 0, answer), kBadCount);
    EXPECT_EQ(WaitForMultipleObjects(tooMany, 0, answer), kBadCount);
    EXPECT_EQ(answer, 7U);
}

}  // namespace
