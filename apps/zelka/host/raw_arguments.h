#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

// The arguments of the process in the bytes in which they came. The framework gets them as wide
// text that is made here: left to itself it would read them by the locale of the environment, and
// drop those that it cannot read. Lua scripts get the bytes.

// Keeps the arguments. Called once, first thing in `main`.
void KeepRawArguments(int argc, char** argv);

const std::vector<std::string>& RawArguments();

// The index of the first argument in front of "--" that is not valid UTF-8: one that the agent
// itself would have to understand.
std::optional<std::size_t> FirstInvalidOption();

// The arguments for the framework, valid for the life of the process; as many as the raw ones,
// those that are not valid UTF-8 with every byte beyond ASCII replaced by '?'. Called once.
wchar_t** FrameworkArguments();
