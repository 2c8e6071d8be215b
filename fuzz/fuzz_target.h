#pragma once

#include <cstdlib>
#include <string_view>

// What a target is: does its work on an input, whatever that holds, and aborts if a promise is
// broken.
void RunOnInput(std::string_view input);

inline void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}
