#pragma once

#include <cstddef>
#include <string>
#include <system_error>
#include <vector>

// One output of a program: the first MiB of what it wrote.
struct ProgramOutput {
    std::string content;
    std::size_t dropped = 0;  // bytes behind it
};

// What came of a program that ran to its end.
struct ProgramResult {
    unsigned long exitCode = 0;  // its exit status, or 128 plus the signal that ended it
    ProgramOutput output;        // standard output
    ProgramOutput errors;        // standard error
};

// Runs a program and waits, without limit, for it to end. `program` is a path and is not searched
// for; it is also the name under which the program starts, in front of `arguments`. It gets the
// environment and the current folder of this process, an empty standard input, the signal settings
// of a fresh process, and no other descriptor than its outputs. What a process that it leaves
// behind writes after its end is not waited for. A program that is given up is killed. Any thread.
[[nodiscard]] std::error_code RunProgram(const std::string& program,
                                         std::vector<std::string> arguments, ProgramResult& result);

// Runs a program in the place of this one, in this process, with its descriptors that are not
// closed on exec. `program` and `arguments` are as above. Returns if that fails, with nothing
// changed.
[[nodiscard]] std::error_code BecomeProgram(const std::string& program,
                                            const std::vector<std::string>& arguments);
