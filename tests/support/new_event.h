#pragma once

#include <gtest/gtest.h>

#include "platform/events.h"

// A new event, whose owner is the caller's.
inline HANDLE NewEvent(bool manualReset, bool signalled) {
    HANDLE event = 0;
    EXPECT_FALSE(CreateEventW(manualReset, signalled, event));
    return event;
}
