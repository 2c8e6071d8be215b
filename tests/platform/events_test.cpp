#include "platform/events.h"

#include <gtest/gtest.h>

#include "tests/support/new_event.h"

namespace {

const std::error_code kNotOpen = std::make_error_code(std::errc::bad_file_descriptor);

TEST(Events, OneWithAutomaticResetGivesItsSignalOnceAndOneWithManualResetKeepsIt) {
    const ScopedHandle automatic(NewEvent(false, true));
    const ScopedHandle manual(NewEvent(true, false));
    const EventPtr once = FindEvent(automatic.Get());
    const EventPtr always = FindEvent(manual.Get());
    ASSERT_FALSE(SetEvent(automatic.Get()));  // signalled already
    EXPECT_TRUE(TakeSignal(*once));
    EXPECT_FALSE(TakeSignal(*once));
    EXPECT_FALSE(TakeSignal(*always));
    ASSERT_FALSE(SetEvent(manual.Get()));
    EXPECT_TRUE(TakeSignal(*always));
    EXPECT_TRUE(TakeSignal(*always));
}

TEST(Events, AHandleIsRefusedOnceClosedWhileItsEventStaysWithThoseWhoHaveFoundIt) {
    const HANDLE old = NewEvent(false, true);
    const EventPtr kept = FindEvent(old);
    ASSERT_FALSE(CloseHandle(old));
    const ScopedHandle next(NewEvent(true, false));
    EXPECT_NE(next.Get(), old);
    for (const HANDLE handle : {old, HANDLE{0}, INVALID_HANDLE_VALUE, HANDLE{1}, HANDLE{1} << 52}) {
        EXPECT_EQ(SetEvent(handle), kNotOpen);
        EXPECT_EQ(FindEvent(handle), nullptr);
        EXPECT_EQ(CloseHandle(handle), kNotOpen);
    }
    EXPECT_TRUE(TakeSignal(*kept));
}

}  // namespace
