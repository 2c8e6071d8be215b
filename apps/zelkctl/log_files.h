#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

// The log files of a working folder. What fails is a CommandError.

// The newest last; none if there is no folder for them.
std::vector<std::string> LogFilesOf(const std::string& workdir);

// The file that the agent of the folder writes to; if it cannot be asked, the newest one.
std::string CurrentLogOf(const std::string& workdir);

// The last lines of a file, which is read backwards, and stands behind them then.
std::string LastLines(std::FILE* file, std::size_t count);
