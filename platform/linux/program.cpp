#include "platform/program.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <utility>

#include "platform/error.h"
#include "platform/running_program.h"

namespace {

std::error_code TransferUntilItEnds(RunningProgram& program) {
    using Descriptor = RunningProgram::Descriptor;
    for (;;) {
        std::array waited{pollfd{program.Get(Descriptor::kEnd), POLLIN, 0},
                          pollfd{program.Get(Descriptor::kOutput), POLLIN, 0},
                          pollfd{program.Get(Descriptor::kErrors), POLLIN, 0}};
        if (poll(waited.data(), waited.size(), -1) < 0) {
            if (errno != EINTR) {
                return LastSystemError();
            }
            continue;
        }
        if (waited[0].revents != 0) {
            return {};
        }
        program.Transfer();
    }
}

}  // namespace

std::error_code RunProgram(const std::string& program, std::vector<std::string> arguments,
                           ProgramResult& result) {
    ProgramStart start;
    start.arguments = std::move(arguments);
    start.arguments.insert(start.arguments.begin(), program);
    std::unique_ptr<RunningProgram> running;
    ProgramEnd end;
    std::error_code error = RunningProgram::Start(std::move(start), running);
    error = error ? error : TransferUntilItEnds(*running);
    error = error ? error : running->Collect(end);
    if (!error) {
        result = {static_cast<unsigned long>(end.isSignal ? 128 + end.code : end.code),
                  std::move(end.output), std::move(end.errors)};
    }
    return error;
}

std::error_code BecomeProgram(const std::string& program,
                              const std::vector<std::string>& arguments) {
    std::vector<std::string> words{program};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    (void)execv(program.c_str(), pointers.data());
    return LastSystemError();
}
